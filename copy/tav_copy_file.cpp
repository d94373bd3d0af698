#include "copy/object_copy.h"
#include "platform/catalog.h"
#include "text/wide_string.h"

#include <algorithm>

static OSErr CopyToFolder(const TavChar* existingFileName, const TavChar* folderPath,
                          const HFSUniStr255& name, bool failIfExists) {
    FSRef source, destFolder;
    if (!CTavStringW(existingFileName).MakeFSRef(&source) || !CTavStringW(folderPath).MakeFSRef(&destFolder))
        return fnfErr;
    return FSCopyObject(&source, &destFolder, 0, kFSCatInfoNone,
                        failIfExists ? kDupeActionStandard : kDupeActionReplace, &name, false, false, nullptr,
                        nullptr, nullptr, nullptr);
}

int32_t TavCopyFile(const TavChar* existingFileName, const TavChar* newFileName, int32_t failIfExists) {
    constexpr uint32_t kPathUnits = 1024, kNameUnits = 255;
    if (!existingFileName || !newFileName || tav_wcslen(newFileName) >= kPathUnits) return 0;
    const TavChar* leaf = TavPathFindFileName(newFileName);
    // No folder in front, or no memory to find where the name begins.
    if (leaf == newFileName) return 0;
    uint32_t leafUnits = tav_wcslen(leaf);
    if (leafUnits > kNameUnits) return 0;
    HFSUniStr255 name{static_cast<uint16_t>(leafUnits), {}};
    std::copy_n(leaf, leafUnits, name.unicode);

    TavChar folderPath[kPathUnits] = {};
    tav_wcscpy(folderPath, newFileName);
    if (!TavPathRemoveFileSpec(folderPath)) return 0;
    PlatformBeginQuestions();
    OSErr result = CopyToFolder(existingFileName, folderPath, name, failIfExists);
    PlatformEndQuestions();
    return result == noErr;
}
