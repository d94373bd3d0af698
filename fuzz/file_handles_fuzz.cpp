// Sequences of calls on file handles, with numbers that are open, closed or invented, beside a text and a table of
// positions.
#include "input.h"

#include "support/files.h"
#include "support/virtual_paths.h"

#include <map>

namespace {

constexpr int64_t kMostBytes = 1 << 16;

struct Handle {
    int64_t position;
    bool reads, writes;
};

class Sequence {
public:
    Sequence(Input& input, const TemporaryFolder& folder)
        : input_(input), path_(folder / "file"), file_(MakeRef(Wide(path_))) {
        WriteFile(path_, content_);
    }
    ~Sequence() {
        for (const auto& [number, handle] : handles_) Expect(TavFileCloseExt(number) == 0);
        Expect(ReadFile(path_) == content_);
    }

    void Run() {
        for (int calls = 0; calls < 200 && !input_.AtEnd(); ++calls) Step();
    }

private:
    // Numbers have sixteen bits; those above are cut off.
    int32_t Number() {
        const uint8_t choice = input_.Byte();
        if (choice >= 0xF0 || handles_.empty()) return static_cast<int32_t>(input_.Number());
        return std::next(handles_.begin(), static_cast<ptrdiff_t>(choice % handles_.size()))->first;
    }
    Handle* Find(int32_t number) {
        const auto found = handles_.find(static_cast<int16_t>(number));
        return found == handles_.end() ? nullptr : &found->second;
    }

    int64_t Size() const { return static_cast<int64_t>(content_.size()); }

    void Step();
    void Open();
    void Close(int32_t number);
    void Read(int32_t number);
    void Write(int32_t number);
    void SetPointer(int32_t number);
    void SetSize(int32_t number);

    Input& input_;
    std::string content_ = "the file";
    std::string path_;
    Ref file_;
    std::map<int16_t, Handle> handles_;
};

void Sequence::Open() {
    if (handles_.size() == 8) return;
    const uint8_t flags = input_.Byte();
    const bool truncates = (flags & 0x20) != 0;
    const uint32_t access = flags & (TAV_FILE_READ | TAV_FILE_WRITE);
    const int32_t number = truncates ? TavFileCreateExt(file_.get(), access | TAV_FILE_TRUNCATE)
                                     : TavFileOpenExt(file_.get(), access);
    Expect(number > 0 && !Find(number));
    if (truncates) content_.clear();
    // Without any right asked for there are both.
    handles_[static_cast<int16_t>(number)] = {0, access != TAV_FILE_WRITE, access != TAV_FILE_READ};
}

void Sequence::Close(int32_t number) {
    constexpr int32_t kNotOpen = -51;
    Expect(TavFileCloseExt(number) == (Find(number) ? 0 : kNotOpen));
    handles_.erase(static_cast<int16_t>(number));
}

void Sequence::Read(int32_t number) {
    char buffer[256];
    const uint32_t count = input_.Byte();
    uint32_t actual = 1;
    const bool isRead = TavFileReadExt(number, buffer, count, &actual);
    Handle* handle = Find(number);
    std::string expected;
    if (handle && handle->reads && handle->position < Size())
        expected = content_.substr(static_cast<size_t>(handle->position), count);
    Expect(isRead == !expected.empty() && std::string(buffer, actual) == expected);
    if (handle) handle->position += actual;
}

void Sequence::Write(int32_t number) {
    const std::string bytes = input_.Bytes(input_.Byte());
    Handle* handle = Find(number);
    if (handle && handle->position > kMostBytes) return;
    uint32_t actual = 1;
    const bool isWritten =
        TavFileWriteExt(number, bytes.data(), static_cast<uint32_t>(bytes.size()), &actual);
    Expect(isWritten == (handle && handle->writes && !bytes.empty()));
    Expect(actual == (isWritten ? bytes.size() : 0));
    if (!isWritten) return;
    const auto position = static_cast<size_t>(handle->position);
    if (content_.size() < position + actual) content_.resize(position + actual);
    content_.replace(position, actual, bytes);
    handle->position += actual;
}

void Sequence::SetPointer(int32_t number) {
    const uint32_t method = input_.Byte() % 3;
    const auto high = static_cast<int8_t>(input_.Byte()), low = static_cast<int8_t>(input_.Byte());
    const int64_t distance = low + (high % 16 == 0 ? int64_t{high} << 32 : 0);
    Handle* handle = Find(number);
    const int64_t from = method == TAV_FILE_BEGIN || !handle ? 0
                         : method == TAV_FILE_CURRENT        ? handle->position
                                                             : Size();
    int64_t position = -7;
    const bool isSet = TavFileSetPointerExt(number, distance, &position, method);
    Expect(isSet == (handle && from + distance >= 0));
    Expect(position == (isSet ? from + distance : -7));
    if (isSet) handle->position = position;
}

void Sequence::SetSize(int32_t number) {
    const int64_t size = int64_t{static_cast<int8_t>(input_.Byte())} << input_.Byte() % 9;
    Handle* handle = Find(number);
    const bool isSet = TavFileSetFileSizeExt(number, size);
    Expect(isSet == (handle && handle->writes && size >= 0));
    if (isSet) content_.resize(static_cast<size_t>(size));
}

void Sequence::Step() {
    const uint8_t call = input_.Byte() % 7;
    if (call == 0) return Open();
    const int32_t number = Number();
    const Handle* handle = Find(number);
    switch (call) {
    case 1:
        return Close(number);
    case 2:
        return Read(number);
    case 3:
        return Write(number);
    case 4:
        return SetPointer(number);
    case 5:
        return SetSize(number);
    default:
        int64_t position = 0, size = 0;
        Expect(TavFileGetPointerExt(number, &position) == (handle != nullptr));
        Expect(TavFileGetFileSizeExt(number, &size) == (handle != nullptr));
        Expect(!handle || (position == handle->position && size == Size()));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const TemporaryFolder folder;
    Input input(data, size);
    Sequence(input, folder).Run();
    return 0;
}
