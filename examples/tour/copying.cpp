#include "copying.h"

#include "listing.h"
#include "report.h"

#include <cstring>

namespace {

int32_t Copy(const std::string& from, const std::string& to, bool failIfExists) {
    return TavCopyFile(Utf16(from).c_str(), Utf16(to).c_str(), failIfExists);
}

Reference At(const std::string& path) {
    return Reference(Tav0FSRCreateWithPath(Utf16(path).c_str()));
}

// The whole content of a file, "(unreadable)" when it cannot be had.
std::string ContentOf(const std::string& path) {
    const int32_t handle = TavFileOpenExt(At(path).get(), TAV_FILE_READ);
    if (handle == -1) return "(unreadable)";
    std::string content;
    char buffer[4096];
    uint32_t count = 0;
    do {
        // The end of the file is no success, but what was read up to it counts.
        TavFileReadExt(handle, buffer, sizeof buffer, &count);
        content.append(buffer, count);
    } while (count == sizeof buffer);
    TavFileCloseExt(handle);
    return content;
}

struct Comparison {
    int files = 0;
    int folders = 0;
    std::string difference; // the first one; empty when there is none
};

void CompareFiles(const std::string& a, const std::string& b, const TavFindDataW& itemA,
                  const TavFindDataW& itemB, Comparison& result) {
    ++result.files;
    constexpr size_t kWholeSeconds = 6;
    if (std::memcmp(&itemA.ftLastWriteTime, &itemB.ftLastWriteTime, kWholeSeconds) != 0)
        result.difference = "date of " + b;
    if (ContentOf(a) != ContentOf(b)) result.difference = "content of " + b;
}

// Two trees, item by item: names, kinds, and the files' dates and content.
void Compare(const std::string& a, const std::string& b, Comparison& result) {
    ++result.folders;
    const auto itemsA = ListFolder(a, false), itemsB = ListFolder(b, false);
    if (itemsA.size() != itemsB.size()) result.difference = "items in " + b;
    for (size_t i = 0; i < itemsA.size() && result.difference.empty(); ++i) {
        const std::string name = Utf8(itemsA[i].cFileName);
        const std::string innerA = a + "/" + name, innerB = b + "/" + name;
        if (Utf8(itemsB[i].cFileName) != name) result.difference = "name of " + innerB;
        if (itemsA[i].dwFileAttributes != itemsB[i].dwFileAttributes) result.difference = "kind of " + innerB;
        if (IsFolder(innerA))
            Compare(innerA, innerB, result);
        else
            CompareFiles(innerA, innerB, itemsA[i], itemsB[i], result);
    }
}

void CheckSame(const std::string& what, const std::string& a, const std::string& b) {
    Comparison result;
    Compare(a, b, result);
    const bool isSame = result.difference.empty() && result.files > 0;
    if (!isSame) Step("they differ in", result.difference);
    Check(what, isSame,
          std::to_string(result.files) + " files in " + std::to_string(result.folders) +
              " folders are the same");
}

bool Overwrite(const std::string& path, const std::string& text) {
    const int32_t handle = TavFileOpenExt(At(path).get(), TAV_FILE_WRITE);
    uint32_t written = 0;
    const bool isWritten =
        handle != -1 && TavFileWriteExt(handle, text.data(), static_cast<uint32_t>(text.size()), &written);
    return handle != -1 && TavFileCloseExt(handle) == 0 && isWritten;
}

} // namespace

void ShowCopying(const std::string& tree, const std::string& scratch) {
    Heading("A tree copied, compared, deleted");
    const std::string copy = scratch + "/Copy";
    Check("copied", Copy(tree, copy, true), copy);
    CheckSame("compared", tree, copy);
    Check("the locked file's copy is locked, too",
          TavFileOpenExt(At(copy + "/contract.txt").get(), TAV_FILE_WRITE) == -1, "not to be written");
    Check("copied once more", !Copy(tree, copy, true), "refused: it exists");

    const std::string letter = "/en/Letters/summer.txt";
    const bool isChanged = Overwrite(copy + letter, "Dear Bob");
    Check("a letter in the copy changed", isChanged, "\"" + ContentOf(copy + letter).substr(0, 22) + "...\"");
    Check("replaced by the original", Copy(tree + letter, copy + letter, false), copy + letter);
    CheckSame("compared again", tree, copy);
    Check("copied into itself", !Copy(tree, tree + "/en/Copy", true), "refused");

    const Reference all = At(copy);
    Check("the copy deleted", TavFileDeleteExt(all.get()) && !Tav0FSRIsExist(all.get()), PathOf(all));
}
