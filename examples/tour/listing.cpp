#include "listing.h"

#include "report.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

// Rows that a table shows at most.
constexpr size_t kRows = 12;

// "2004-07-01 12:00" in UTC; the library counts from 1904.
std::string TimeText(const TavFileTime& time) {
    constexpr int64_t kSecondsTo1970 = 2082844800;
    int64_t seconds = 0;
    for (int i = 0; i < 6; ++i) seconds = seconds << 8 | time.bytes[i];
    const time_t moment = static_cast<time_t>(seconds - kSecondsTo1970);
    std::tm fields = {};
    char text[32] = "";
    if (gmtime_r(&moment, &fields)) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &fields);
    return text;
}

std::string KindText(const TavFindDataW& item) {
    const bool folder = item.dwFileAttributes & TAV_FILE_ATTRIBUTE_DIRECTORY;
    const bool hidden = item.dwFileAttributes & TAV_FILE_ATTRIBUTE_HIDDEN;
    return std::string(folder ? "folder" : "file") + (hidden ? ", hidden" : "");
}

void ShowItem(const TavFindDataW& item) {
    const uint64_t size = static_cast<uint64_t>(item.nFileSizeHigh) << 32 | item.nFileSizeLow;
    std::printf("  %s %s %12llu  %s\n", Padded(Utf8(item.cFileName), 28).c_str(),
                Padded(KindText(item), 15).c_str(), static_cast<unsigned long long>(size),
                TimeText(item.ftLastWriteTime).c_str());
}

void ShowFolder(const std::string& folder) {
    std::printf("  %s %s %12s  %s\n", Padded("name", 28).c_str(), Padded("kind", 15).c_str(), "space taken",
                "written (UTC)");
    const std::vector<TavFindDataW> items = ListFolder(folder, true);
    const size_t count = items.size();
    for (size_t i = 0; i < count && i < kRows; ++i) ShowItem(items[i]);
    if (count > kRows) std::printf("  and %zu more\n", count - kRows);
    Check("items, the folder itself among them", count > 0, std::to_string(count));
}

void CheckItem(const std::string& folder, const std::string& name) {
    TavChar path[1024];
    tav_wcscpy(path, Utf16(folder).c_str());
    TavPathAppend(path, Utf16(name).c_str());
    TavFindDataW item;
    TavFindSearch* search = TavFindFirstFile(path, &item);
    const bool found = search != TAV_INVALID_FIND;
    Check("found by its name", found, found ? Utf8(item.cFileName) : "");
    if (found) TavFindClose(search);
}

const char* DriveText(int32_t type) {
    switch (type) {
    case 2:
        return "removable";
    case 3:
        return "fixed";
    case 5:
        return "optical";
    default:
        return "unknown";
    }
}

void ShowDrives() {
    std::vector<TavChar> list(1025 * 1024); // a list that is longer would be written past its end
    const uint32_t units = TavGetLogicalDriveStrings(static_cast<uint32_t>(list.size()), list.data());
    size_t count = 0;
    for (uint32_t i = 0; i < units; i += tav_wcslen(&list[i]) + 1) {
        if (count++ < kRows)
            std::printf("  %s %s\n", Padded(Utf8(&list[i]), 50).c_str(),
                        DriveText(TavGetDriveType(&list[i])));
    }
    if (count > kRows) std::printf("  and %zu more\n", count - kRows);
    Check("the first drive", units >= 2 && TavPathIsRoot(list.data()), Utf8(list.data()));
}

} // namespace

std::vector<TavFindDataW> ListFolder(const std::string& folder, bool withItself) {
    std::vector<TavFindDataW> items;
    TavFindDataW item;
    TavFindSearch* search = TavFindFirstFile(Utf16(folder + "/*").c_str(), &item);
    if (search == TAV_INVALID_FIND) return items;
    // What comes first is the folder itself, a package under its own name.
    if (withItself) items.push_back(item);
    while (TavFindNextFile(search, &item)) items.push_back(item);
    TavFindClose(search);
    // Entries come in no particular order.
    std::sort(items.begin(), items.end(), [](const TavFindDataW& a, const TavFindDataW& b) {
        return tav_wcscmp(a.cFileName, b.cFileName) < 0;
    });
    return items;
}

bool IsFolder(const std::string& path) {
    const auto items = ListFolder(path, true);
    return items.size() > 1 || (items.size() == 1 && Utf8(items[0].cFileName) == ".");
}

std::vector<std::string> FilesIn(const std::string& folder, size_t most) {
    std::vector<std::string> names;
    for (const TavFindDataW& item : ListFolder(folder, false)) {
        const std::string name = Utf8(item.cFileName);
        // Names that begin with "." cannot be in a virtual path.
        if (name[0] == '.' || names.size() == most) continue;
        if (!IsFolder(folder + "/" + name)) names.push_back(name);
    }
    return names;
}

void ShowListing(const std::string& folder, const std::string& expected) {
    Heading("The folder");
    ShowFolder(folder);
    if (!expected.empty()) CheckItem(folder, expected);
    Heading("The drives");
    ShowDrives();
}
