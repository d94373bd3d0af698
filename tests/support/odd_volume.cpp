#include "support/odd_volume.h"

#include <bit>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/fuse.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

// The kernel's own protocol: a request is read from the device, its answer written there.

static constexpr size_t kLongestRequest = 256 * 1024;

static fuse_attr AttributesOf(uint64_t node) {
    fuse_attr attributes = {};
    attributes.ino = node;
    attributes.mode = node == FUSE_ROOT_ID ? S_IFDIR | 0755 : S_IFREG | 0644;
    attributes.nlink = 1;
    attributes.blksize = 4096;
    return attributes;
}

static void Send(int device, uint64_t request, int error, const void* bytes = nullptr, size_t size = 0) {
    fuse_out_header head = {static_cast<uint32_t>(sizeof(head) + size), -error, request};
    const iovec parts[] = {{&head, sizeof head}, {const_cast<void*>(bytes), size}};
    // Who asked may have gone; then nobody wants the answer.
    [[maybe_unused]] const ssize_t sent = writev(device, parts, size ? 2 : 1);
}

template <typename Reply>
static void Send(int device, uint64_t request, const Reply& reply) {
    Send(device, request, 0, &reply, sizeof reply);
}

std::string OddVolume::Unsupported() {
    if (std::endian::native != std::endian::little)
        return "the emulator does not turn round the bytes of the FUSE protocol";
    return access("/dev/fuse", R_OK | W_OK) == 0 ? "" : "there is no FUSE device";
}

OddVolume::OddVolume(std::string folder, std::vector<Entry> entries)
    : folder_(std::move(folder)), entries_(std::move(entries)) {
    device_ = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string options =
        "fd=" + std::to_string(device_) + ",rootmode=40000,user_id=0,group_id=0,allow_other";
    if (device_ < 0 || mount("odd", folder_.c_str(), "fuse", MS_NOSUID, options.c_str()) != 0) {
        missing_ = std::string("no FUSE volume can be mounted: ") + strerror(errno);
        return;
    }
    server_ = std::thread([this] { Serve(); });
}

OddVolume::~OddVolume() {
    if (server_.joinable()) {
        umount2(folder_.c_str(), MNT_DETACH);
        stop_ = true; // what still holds a folder of it open gets no answers any more
        server_.join();
    }
    if (device_ >= 0) close(device_);
}

void OddVolume::Serve() {
    std::vector<char> request(kLongestRequest);
    constexpr int kMilliseconds = 20;
    pollfd waiting = {device_, POLLIN, 0};
    while (!stop_) {
        if (poll(&waiting, 1, kMilliseconds) <= 0) continue;
        if (read(device_, request.data(), request.size()) > 0) Answer(request.data());
    }
}

// Every entry of the folder behind the one with that number.
static std::string List(const std::vector<OddVolume::Entry>& entries, uint64_t behind) {
    std::string list;
    for (uint64_t i = behind; i < entries.size(); ++i) {
        const std::string& name = entries[i].name;
        fuse_dirent head = {FUSE_ROOT_ID + 1 + i, i + 1, static_cast<uint32_t>(name.size()), S_IFREG >> 12};
        std::string entry(FUSE_NAME_OFFSET, '\0');
        std::memcpy(entry.data(), &head, FUSE_NAME_OFFSET);
        entry += name;
        entry.resize(FUSE_DIRENT_ALIGN(entry.size()));
        list += entry;
    }
    return list;
}

void OddVolume::Answer(const char* request) {
    fuse_in_header head;
    std::memcpy(&head, request, sizeof head);
    const char* body = request + sizeof head;
    switch (head.opcode) {
    case FUSE_INIT: {
        fuse_init_out out = {};
        out.major = FUSE_KERNEL_VERSION;
        out.minor = FUSE_KERNEL_MINOR_VERSION;
        out.max_write = 4096;
        return Send(device_, head.unique, out);
    }
    case FUSE_LOOKUP:
        for (uint64_t i = 0; i < entries_.size(); ++i) {
            if (entries_[i].name != body) continue;
            if (entries_[i].error) return Send(device_, head.unique, entries_[i].error);
            fuse_entry_out out = {};
            out.nodeid = FUSE_ROOT_ID + 1 + i;
            out.attr = AttributesOf(out.nodeid);
            return Send(device_, head.unique, out);
        }
        return Send(device_, head.unique, ENOENT);
    case FUSE_GETATTR: {
        fuse_attr_out out = {};
        out.attr = AttributesOf(head.nodeid);
        return Send(device_, head.unique, out);
    }
    case FUSE_OPENDIR:
    case FUSE_OPEN:
        return Send(device_, head.unique, fuse_open_out{});
    case FUSE_READDIR: {
        fuse_read_in in;
        std::memcpy(&in, body, sizeof in);
        const std::string list = List(entries_, in.offset);
        return Send(device_, head.unique, 0, list.data(), list.size());
    }
    case FUSE_RELEASEDIR:
    case FUSE_RELEASE:
        return Send(device_, head.unique, 0);
    case FUSE_FORGET:
    case FUSE_BATCH_FORGET:
    case FUSE_INTERRUPT:
        return; // no answer is wanted
    default:
        return Send(device_, head.unique, ENOSYS);
    }
}
