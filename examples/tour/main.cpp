// A tour of the library: keys, values and expressions, and the files that they lead to.
// usage: tour [FOLDER]
#include "copying.h"
#include "listing.h"
#include "modules.h"
#include "report.h"
#include "sample_tree.h"
#include "workers.h"

#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace {

Reference At(const std::string& path) {
    return Reference(Tav0FSRCreateWithPath(Utf16(path).c_str()));
}

Expression Written(const std::string& text) {
    return Expression(Tav0FSExpCreateExp(Utf16(text).c_str()));
}

void Append(const Expression& e, const std::string& segment) {
    Tav0FSExpAppendSeg(e.get(), Utf16(segment).c_str());
}

Reference Evaluated(const Expression& e, const Reference& base = nullptr) {
    return Reference(Tav0FSExpCalculateFSRCreate(e.get(), base.get()));
}

Reference Evaluated(const std::string& expression) {
    return Evaluated(Written(expression));
}

// The first line of a file.
std::string FirstLine(const Reference& file) {
    const int32_t handle = TavFileOpenExt(file.get(), TAV_FILE_READ);
    if (handle == -1) return "cannot be read";
    char buffer[60] = "";
    uint32_t count = 0;
    TavFileReadExt(handle, buffer, sizeof buffer, &count);
    TavFileCloseExt(handle);
    std::string line(buffer, count);
    line = line.substr(0, line.find('\n'));
    for (char& byte : line) {
        if (static_cast<unsigned char>(byte) < ' ') byte = '.';
    }
    return "\"" + line + "\"";
}

void RegisterFolder(const char* characters, const std::string& path) {
    TavKey key;
    std::memcpy(&key, characters, sizeof key);
    FSRef folder;
    const bool ok = Tav0FSRToAbs(At(path).get(), &folder, 0) && Tav0TranPathRegister(&key, &folder);
    Check(std::string("key '") + characters + "'", ok, path);
}

void RegisterValue(const char* name, const TavChar* value) {
    MyStr16 field = {};
    std::strncpy(field.name, name, sizeof field.name - 1);
    Check(std::string("value '") + name + "'", Tav0FSValRegister(&field, value), Utf8(value));
}

void ShowEvaluation(const Expression& e, const Reference& base = nullptr) {
    const Reference r = Evaluated(e, base);
    Check(TextOf(e), r != nullptr, PathOf(r) + (Tav0FSRIsExist(r.get()) ? "" : "  (nothing there)"));
}

void ShowExpressions(const std::string& folder, const std::string& name) {
    Heading("Expressions, and the paths that they become");
    const Reference top = At(folder);
    Expression absolute(Tav0FSExpCreateAbs(top.get()));
    Append(absolute, name);
    ShowEvaluation(absolute);

    Expression byKey(Tav0FSExpCreateTK("tour"));
    ShowEvaluation(byKey);
    Tav0FSExpAppendVal(byKey.get(), "lang");
    Append(byKey, "Letters/summer.txt");
    ShowEvaluation(byKey);
    ShowEvaluation(Written("$work\\a\\.\\b\\..\\c"));

    const Expression onBase = Written("$$tour\\" + name);
    Check(TextOf(onBase), !Evaluated(onBase), "fails without a base");
    ShowEvaluation(onBase, top);

    const Reference file = Evaluated(absolute);
    const Expression back(Tav0FSExpCreateAbsOnKey(file.get(), "tour", nullptr));
    Step("told by the key, that is", back ? TextOf(back) : "not to be told: nothing counts as below \"/\"");
    const Expression escape = Written("$tour\\.secret");
    Check(TextOf(escape), !Evaluated(escape), "refused: names may not begin with \".\"");
}

void ShowFiles(const std::string& folder) {
    Heading("What the files say");
    const auto names = FilesIn(folder, 5);
    for (const std::string& name : names) {
        const Reference file(Tav0FSRAppendPathComponent(At(folder).get(), Utf16(name).c_str()));
        Step(name, file ? FirstLine(file) : "cannot be named");
    }
    if (names.empty()) Step(folder, "has no files");
}

void ShowSample() {
    Heading("A locked file, a link, a package");
    const Reference locked = Evaluated("$tour\\contract.txt");
    Check("contract.txt is locked", TavFileOpenExt(locked.get(), TAV_FILE_WRITE) == -1, "not to be written");
    Check("but may be read", FirstLine(locked) == "\"Signed and sealed.\"", FirstLine(locked));
    const Reference link = Evaluated("$tour\\latest letter");
    Check("the link leads to", FirstLine(link) == "\"Dear Ann, the sea is warm.\"", FirstLine(link));
    const Reference info = Evaluated("$tour\\Notes.app\\Contents\\PkgInfo");
    Check("inside the package", FirstLine(info) == "\"APPL????\"", FirstLine(info));
    const Reference caseless = Evaluated("$tour\\EN\\letters\\SUMMER.TXT");
    Check("letter case may differ", Tav0FSRIsExist(caseless.get()), PathOf(caseless));
}

bool WriteAll(int32_t handle, const std::string& text) {
    uint32_t written = 0;
    return TavFileWriteExt(handle, text.data(), static_cast<uint32_t>(text.size()), &written) &&
           written == text.size();
}

void WriteAndReadBack() {
    Heading("A file written and read back");
    const Reference file = Evaluated("$work\\\u00dcbung.txt");
    const int32_t handle = TavFileCreateExt(file.get(), TAV_FILE_READ | TAV_FILE_WRITE);
    Check("created", handle != -1, PathOf(file));
    Check("written", WriteAll(handle, "one, two, three\n"), "16 bytes");
    int64_t position = 0;
    const bool moved = TavFileSetPointerExt(handle, -6, &position, TAV_FILE_END) && position == 10;
    Check("position six bytes before the end", moved, "byte " + std::to_string(position));
    Check("overwritten from there", WriteAll(handle, "four!\n"), "6 bytes");
    int64_t size = 0;
    const bool sized = TavFileGetFileSizeExt(handle, &size) && size == 16;
    Check("size", sized, std::to_string(size) + " bytes");
    Check("closed", TavFileCloseExt(handle) == 0, "handle " + std::to_string(handle));
    Check("read back", FirstLine(file) == "\"one, two, four!\"", FirstLine(file));
    Check("created again", TavFileCreateExt(file.get(), TAV_FILE_READ) == -1, "refused: it exists");
}

void RenameMoveAndDelete() {
    Heading("Renamed, moved, deleted");
    const Reference file = Evaluated("$work\\\u00dcbung.txt");
    OpacTavFSRef* result = nullptr;
    const bool renamed = TavFileRenameExt(file.get(), u"exercise.txt", &result);
    const Reference exercise(result);
    Check("renamed", renamed, PathOf(exercise));
    const Reference folder = Evaluated("$work\\drafts");
    Check("folder made", TavFolderCreateExt(folder.get()), PathOf(folder));
    const Reference moved = Evaluated("$work\\drafts\\exercise.txt");
    Check("moved into it", TavFileMoveFileExt(exercise.get(), folder.get()) && Tav0FSRIsExist(moved.get()),
          PathOf(moved));
    Check("folder deleted while it is full", !TavFolderDeleteExt(folder.get()), "refused");
    Check("deleted with what is in it", TavFileDeleteExt(folder.get()) && !Tav0FSRIsExist(moved.get()),
          PathOf(folder));
}

// Works in a folder of its own; the folder shown is only read.
void Tour(const std::string& chosen) {
    const std::string scratch = MakeScratchFolder();
    const std::string sample = scratch + "/Sample";
    const std::string folder = chosen.empty() ? sample : chosen;
    Heading("A folder for the tour");
    Check("made", TavFolderCreateExt(At(sample).get()), sample);
    MakeSampleTree(sample);
    Heading("Keys and values");
    RegisterFolder("tour", folder);
    RegisterFolder("work", scratch);
    RegisterValue("lang", u"en");

    ShowExpressions(folder, chosen.empty() ? "contract.txt" : "a file.txt");
    ShowListing(folder, chosen.empty() ? "CONTRACT.TXT" : "");
    ShowFiles(folder);
    if (chosen.empty()) ShowSample();
    WriteAndReadBack();
    RenameMoveAndDelete();
    ShowCopying(sample, scratch);
    ShowModules();
    ShowWorkers();
    Heading("Goodbye");
    const Reference all = At(scratch);
    Check("the tour's own folder deleted", TavFileDeleteExt(all.get()) && !Tav0FSRIsExist(all.get()),
          PathOf(all));
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 2) {
        std::fprintf(stderr, "usage: tour [FOLDER]\n");
        return 2;
    }
    std::string folder;
    try {
        if (argc == 2) folder = CheckedFolder(argv[1]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tour: %s\n", error.what());
        return 2;
    }
    try {
        std::printf("TavPort tour%s%s\n", folder.empty() ? "" : " of ", folder.c_str());
        Tour(folder);
        return Summary();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tour: %s\n", error.what());
        return 1;
    }
}
