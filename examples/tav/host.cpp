#include "host.h"

#include "text.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <iterator>
#include <poll.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

volatile sig_atomic_t interrupted = 0;

const int kNoted[] = {SIGINT, SIGTERM, SIGHUP};

void NoteInterrupt(int) {
    interrupted = 1;
}

uint32_t Number(const unsigned char* bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

// Where the entry `id` of an AppleDouble record lies; null when it has none, or one that is not all there.
const unsigned char* Entry(const std::vector<unsigned char>& record, uint32_t id, uint32_t& length) {
    const size_t kHeader = 26;
    if (record.size() < kHeader || Number(record.data()) != 0x00051607) return nullptr;
    const size_t count = static_cast<size_t>(record[24] << 8 | record[25]);
    for (size_t i = 0; i < count && kHeader + 12 * (i + 1) <= record.size(); ++i) {
        const unsigned char* entry = record.data() + kHeader + 12 * i;
        const uint32_t offset = Number(entry + 4);
        if (Number(entry) != id) continue;
        length = Number(entry + 8);
        return offset <= record.size() ? record.data() + offset : nullptr;
    }
    return nullptr;
}

std::vector<unsigned char> Attribute(const std::string& path) {
    std::vector<unsigned char> record(4096);
    const ssize_t size = getxattr(path.c_str(), "user.org.netatalk.Metadata", record.data(), record.size());
    record.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return record;
}

std::vector<unsigned char> FrontOfSidecar(const std::string& path) {
    const fs::path whole(path);
    std::vector<unsigned char> record;
    const int file = open((whole.parent_path() / ("._" + whole.filename().string())).c_str(),
                          O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (file < 0) return record;
    record.resize(4096);
    const ssize_t size = read(file, record.data(), record.size());
    record.resize(size > 0 ? static_cast<size_t>(size) : 0);
    close(file);
    return record;
}

void ReadFinderInfo(const std::vector<unsigned char>& record, host::Facts& facts) {
    const uint32_t kFinderInfo = 9;
    uint32_t length = 0;
    const unsigned char* info = Entry(record, kFinderInfo, length);
    if (!info || length < 16 || info + 16 > record.data() + record.size()) return;
    if (Number(info) != 0) facts.type.assign(reinterpret_cast<const char*>(info), 4);
    if (Number(info + 4) != 0) facts.creator.assign(reinterpret_cast<const char*>(info + 4), 4);
    facts.finderFlags = static_cast<uint16_t>(info[8] << 8 | info[9]);
}

void ReadLock(const std::vector<unsigned char>& record, host::Facts& facts) {
    const uint32_t kServerInfo = 14;
    const unsigned char kWriteInhibited = 0x20;
    uint32_t length = 0;
    const unsigned char* info = Entry(record, kServerInfo, length);
    if (info && length >= 4 && info + 4 <= record.data() + record.size())
        facts.locked = info[3] & kWriteInhibited;
}

std::string ModeText(mode_t mode) {
    std::string text = "rwxrwxrwx";
    for (int i = 0; i < 9; ++i) {
        if (!(mode & (0400u >> i))) text[static_cast<size_t>(i)] = '-';
    }
    return text;
}

std::string OwnerText(const struct stat& facts) {
    const passwd* user = getpwuid(facts.st_uid);
    const group* members = getgrgid(facts.st_gid);
    return (user ? user->pw_name : std::to_string(facts.st_uid)) + ":" +
           (members ? members->gr_name : std::to_string(facts.st_gid));
}

} // namespace

std::string host::Absolute(const std::string& path) {
    std::error_code error;
    fs::path whole = fs::absolute(path, error);
    if (whole.has_relative_path() && !whole.has_filename()) whole = whole.parent_path(); // "folder/"
    const std::string last = whole.filename().string();
    const bool named = !last.empty() && last != "." && last != "..";
    const fs::path folder = fs::canonical(named ? whole.parent_path() : whole, error);
    if (error) return whole.string(); // not to take "gone/.." for the folder that "gone" is not in
    return named ? (folder / last).string() : folder.string();
}

std::string host::Obstacle(const std::string& path, bool forWriting) {
    const size_t kMostUnits = 1023;
    if (Units(path).size() > kMostUnits)
        return "its path is too long, at most " + WithCommas(kMostUnits) + " units";
    const std::string folder = fs::path(path).parent_path().string();
    struct stat facts;
    const int missing = lstat(path.c_str(), &facts) == 0 ? 0 : errno;
    if (missing != 0 && (missing != ENOENT || !forWriting)) return std::strerror(missing);
    if (forWriting && access(folder.c_str(), W_OK | X_OK) != 0) return folder + ": " + std::strerror(errno);
    if (missing != 0) {
        if (!IsText(folder)) return folder + ": its name is no text";
        return IsFull(folder, 1) ? "the disk is full" : "";
    }
    Facts stored;
    Look(path, stored);
    if (forWriting && stored.locked) return "it is locked";
    const bool isFolder = S_ISDIR(facts.st_mode);
    const int wanted = forWriting ? W_OK : isFolder ? R_OK | X_OK : R_OK;
    if ((isFolder || !forWriting) && access(path.c_str(), wanted) != 0) return std::strerror(errno);
    struct stat above;
    if (forWriting && stat(folder.c_str(), &above) == 0) {
        const bool mine = geteuid() == 0 || facts.st_uid == geteuid() || above.st_uid == geteuid();
        if (above.st_mode & S_ISVTX && !mine) return std::strerror(EPERM);
        if (isFolder && above.st_dev != facts.st_dev) return "something is mounted on it";
    }
    if (!IsText(path)) return "its name is no text; cp copies it under another name";
    return !forWriting && IsSpecial(path) ? "it is a device, pipe or socket" : "";
}

std::string host::Reason(const std::string& path, bool forWriting) {
    const std::string obstacle = Obstacle(path, forWriting);
    if (!obstacle.empty()) return obstacle;
    return Exists(path) ? "it cannot be used" : "its name or a limit of the system is in the way";
}

bool host::Look(const std::string& path, Facts& facts) {
    struct stat found;
    if (lstat(path.c_str(), &found) != 0) return false;
    facts.kind = S_ISDIR(found.st_mode)   ? "folder"
                 : S_ISREG(found.st_mode) ? "file"
                                          : "device, pipe or socket";
    if (S_ISLNK(found.st_mode)) {
        char target[PATH_MAX];
        const ssize_t size = readlink(path.c_str(), target, sizeof target);
        facts.kind = "link to " + std::string(target, size > 0 ? static_cast<size_t>(size) : 0);
    }
    facts.size = static_cast<uint64_t>(found.st_size);
    facts.mode = ModeText(found.st_mode);
    facts.owner = OwnerText(found);
    if (S_ISLNK(found.st_mode)) return true;
    const std::vector<unsigned char> attribute = Attribute(path);
    const std::vector<unsigned char> sidecar = FrontOfSidecar(path);
    const std::vector<unsigned char>& record = attribute.empty() ? sidecar : attribute;
    ReadFinderInfo(record, facts);
    ReadLock(record, facts);
    const uint32_t kResourceFork = 2;
    uint32_t length = 0;
    if (Entry(sidecar, kResourceFork, length)) facts.resourceFork = length;
    return true;
}

bool host::IsFolder(const std::string& path) {
    struct stat facts;
    return stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

bool host::IsSpecial(const std::string& path) {
    struct stat facts;
    return stat(path.c_str(), &facts) == 0 && !S_ISDIR(facts.st_mode) && !S_ISREG(facts.st_mode);
}

bool host::IsLink(const std::string& path) {
    struct stat facts;
    return lstat(path.c_str(), &facts) == 0 && S_ISLNK(facts.st_mode);
}

bool host::IsReadable(const std::string& path) {
    return access(path.c_str(), IsFolder(path) ? R_OK | X_OK : R_OK) == 0;
}

bool host::IsSizeKnown(const std::string& path) {
    struct stat facts;
    if (stat(path.c_str(), &facts) != 0 || !S_ISREG(facts.st_mode)) return true;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return true;
    char last;
    const ssize_t expected = facts.st_size > 0 ? 1 : 0;
    const bool known = pread(file, &last, 1, facts.st_size - expected) == expected;
    close(file);
    return known;
}

bool host::Exists(const std::string& path) {
    struct stat facts;
    return lstat(path.c_str(), &facts) == 0;
}

bool host::HoldsWorkingFolder(const std::string& path) {
    struct stat wanted;
    if (lstat(path.c_str(), &wanted) != 0 || !S_ISDIR(wanted.st_mode)) return false;
    struct stat root;
    const auto same = [](const struct stat& a, const struct stat& b) {
        return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
    };
    if (stat("/", &root) == 0 && same(wanted, root)) return true;
    // By ".." from the working folder on: a folder that is mounted in two places has one identity, but two paths.
    int folder = open(".", O_PATH | O_CLOEXEC);
    struct stat before = {};
    struct stat here;
    bool found = false;
    while (folder >= 0 && !found && fstat(folder, &here) == 0 && !same(before, here)) {
        found = same(wanted, here);
        before = here;
        const int above = openat(folder, "..", O_PATH | O_CLOEXEC);
        close(folder);
        folder = above;
    }
    if (folder >= 0) close(folder);
    return found;
}

host::Tree host::Survey(const std::string& path) {
    Tree tree;
    std::error_code error;
    if (fs::is_regular_file(path, error)) tree.bytes = fs::file_size(path, error);
    if (!fs::is_directory(path, error)) return tree;
    fs::recursive_directory_iterator item(path, fs::directory_options::skip_permission_denied, error);
    for (; !error && !interrupted && item != fs::recursive_directory_iterator(); item.increment(error)) {
        tree.items.push_back(item->path().string().substr(path.size()));
        std::error_code ignored;
        const fs::file_type type = item->symlink_status(ignored).type();
        if (type == fs::file_type::regular) tree.bytes += item->file_size(ignored);
        if (type == fs::file_type::directory && !IsReadable(item->path().string()))
            tree.unreadable.push_back(tree.items.back());
    }
    if (error) tree.error = error.message();
    return tree;
}

bool host::IsFull(const std::string& path, uint64_t wanted) {
    struct statvfs volume;
    if (statvfs(path.c_str(), &volume) != 0) return false;
    // One object may take a few: itself, its attributes, a sidecar.
    const bool noMoreFiles = volume.f_files > 0 && volume.f_favail < 4;
    return noMoreFiles || uint64_t{volume.f_bavail} * volume.f_frsize < wanted;
}

size_t host::CountMounts() {
    std::FILE* const list = std::fopen("/proc/self/mountinfo", "re");
    if (!list) return 0;
    size_t lines = 0;
    for (int c = std::getc(list); c != EOF; c = std::getc(list)) lines += c == '\n';
    std::fclose(list);
    return lines;
}

bool host::IsTerminal(int descriptor) {
    return isatty(descriptor);
}

bool host::Interrupted() {
    return interrupted;
}

host::SignalsNoted::SignalsNoted() {
    struct sigaction note = {};
    note.sa_handler = NoteInterrupt;
    for (size_t i = 0; i < std::size(kNoted); ++i) {
        sigaction(kNoted[i], nullptr, &before_[i]);
        if (before_[i].sa_handler != SIG_IGN) sigaction(kNoted[i], &note, nullptr);
    }
}

host::SignalsNoted::~SignalsNoted() {
    for (size_t i = 0; i < std::size(kNoted); ++i) sigaction(kNoted[i], &before_[i], nullptr);
}

host::Outcome host::RunStoppable(const std::function<bool()>& work, const std::function<void()>& tick) {
    if (interrupted) return Outcome::kInterrupted;
    std::fflush(nullptr);
    // The pipe closes when the worker ends, however it ends.
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return Outcome::kFailed;
    const pid_t starter = getpid();
    const pid_t worker = fork();
    if (worker == 0) {
        // The terminal sends them to both; they are for the other one to act on.
        for (const int number : kNoted) std::signal(number, SIG_IGN);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(getppid() == starter && work() ? 0 : 1);
    }
    close(ends[1]);
    pollfd end = {ends[0], POLLIN, 0};
    if (worker > 0) tick();
    while (worker > 0 && !interrupted && poll(&end, 1, 100) <= 0) tick();
    if (worker > 0 && interrupted) kill(worker, SIGKILL);
    int status = 1;
    while (worker > 0 && waitpid(worker, &status, 0) < 0 && errno == EINTR) continue;
    close(ends[0]);
    if (worker > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0) return Outcome::kDone;
    return interrupted ? Outcome::kInterrupted : Outcome::kFailed;
}
