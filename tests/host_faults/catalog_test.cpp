// What the catalog tells and takes, and listing folders.
#include "host_faults/scenarios.h"

#include "platform/iterators.h"

#include <set>

namespace {

class CatalogFaults : public HostFaults {
protected:
    static constexpr FSCatalogInfoBitmap kTold =
        kFSCatInfoNodeFlags | kFSCatInfoPermissions | kFSCatInfoFinderInfo | kFSCatInfoFinderXInfo |
        kFSCatInfoValence | kFSCatInfoDataSizes | kFSCatInfoRsrcSizes | kFSCatInfoCreateDate |
        kFSCatInfoBackupDate | kFSCatInfoUserPrivs | kFSCatInfoUserAccess;

    std::string Facts(const std::string& path) {
        FSRef ref = {};
        FSCatalogInfo info = {};
        OSStatus result = PathToRef(path, ref);
        if (result == noErr) result = FSGetCatalogInfo(&ref, kTold, &info, nullptr, nullptr, nullptr);
        if (result != noErr) return Told(result);
        return std::to_string(info.nodeFlags) + " " + std::to_string(info.permissions.mode) + " " +
               std::string(reinterpret_cast<const char*>(info.finderInfo), 4) + " " +
               std::to_string(info.valence) + " " + std::to_string(info.dataLogicalSize) + " " +
               std::to_string(info.rsrcLogicalSize);
    }

    std::string Set(const std::string& path, FSCatalogInfoBitmap which, const FSCatalogInfo& info) {
        FSRef ref = {};
        const OSStatus result = PathToRef(path, ref);
        return Told(result == noErr ? FSSetCatalogInfo(&ref, which, &info) : result);
    }

    static FSCatalogInfo NewInfo() {
        FSCatalogInfo info = {};
        std::memcpy(info.finderInfo, "APPLappl", 8);
        info.nodeFlags = kFSNodeLockedMask;
        info.permissions.userID = geteuid();
        info.permissions.groupID = getegid();
        info.permissions.mode = 0600;
        info.contentModDate = info.accessDate = info.createDate = DateAt(k1970 + 90000);
        return info;
    }
};

TEST_F(CatalogFaults, FactsOfAFile) {
    scenario.act = [&] { return Facts(folder / "typed"); };
    Sweep();
}

// A sidecar that may not be read tells nothing.
TEST_F(CatalogFaults, FactsOfAFileWithASidecar) {
    scenario.accepts = [](const Outcome& outcome) {
        return SaysGone(outcome) || outcome.failed.ends_with("Permission denied");
    };
    scenario.act = [&] { return Facts(folder / "forked"); };
    Sweep();
}

// A folder that may not be listed shows nothing, and a sidecar that cannot be opened is an ordinary entry.
TEST_F(CatalogFaults, FactsOfAFolder) {
    scenario.accepts = [](const Outcome& outcome) {
        const bool countsNothing = outcome.result.ends_with(" 0 0 0"),
                   countsAll = outcome.result.ends_with(" 7 0 0");
        const bool isDenied = outcome.failed.ends_with("Permission denied");
        return countsAll || (countsNothing && (isDenied || SaysGone(outcome)));
    };
    scenario.act = [&] { return Facts(folder.path()); };
    Sweep();
}

TEST_F(CatalogFaults, FinderInformation) {
    scenario.act = [&] { return Set(folder / "plain", kFSCatInfoFinderInfo, NewInfo()); };
    Sweep();
}

// A record without anything in it is as good as none.
TEST_F(CatalogFaults, FinderInformationTakenAway) {
    scenario.accepts = [&](const Outcome& outcome) {
        return outcome.result == "done" && GetType(folder / "typed") == kNoType;
    };
    scenario.act = [&] { return Set(folder / "typed", kFSCatInfoFinderInfo, {}); };
    Sweep();
}

TEST_F(CatalogFaults, LockOfAFolder) {
    scenario.act = [&] { return Set(folder / "sub", kFSCatInfoNodeFlags, NewInfo()); };
    Sweep();
}

// The sidecar follows where it can.
TEST_F(CatalogFaults, ModeOfAFileWithASidecar) {
    scenario.accepts = [&](const Outcome& outcome) {
        const mode_t mode = StatusOf(folder / "forked").st_mode & 0777;
        return outcome.result == "done" &&
               (mode == 0600 || outcome.failed.ends_with("chmod: Operation not permitted"));
    };
    scenario.act = [&] { return Set(folder / "forked", kFSCatInfoPermissions, NewInfo()); };
    Sweep();
}

TEST_F(CatalogFaults, DatesOfAFile) {
    scenario.act = [&] { return Set(folder / "plain", kFSCatInfoContentMod, NewInfo()); };
    Sweep();
}

// A file that says to be a link becomes one: a whole file or a whole link at every moment.
TEST_F(CatalogFaults, TurningAFileIntoALink) {
    scenario.act = [&] {
        FSCatalogInfo info = {};
        std::memcpy(info.finderInfo, "slnkrhap", 8);
        return Set(folder / "sub/inner/leaf", kFSCatInfoFinderInfo, info);
    };
    Sweep();
}

// ---- Listing

std::string List(const std::string& path, FSIteratorFlags flags, ItemCount many) {
    FSRef ref = {};
    FSIterator iterator = nullptr;
    OSErr result = static_cast<OSErr>(PathToRef(path, ref));
    if (result == noErr) result = FSOpenIterator(&ref, flags, &iterator);
    if (result != noErr) return Told(result);
    std::multiset<std::string> lines;
    while (result == noErr) {
        FSCatalogInfo infos[3];
        HFSUniStr255 names[3];
        ItemCount count = 0;
        result =
            FSGetCatalogInfoBulk(iterator, many, &count, nullptr, kFSCatInfoFinderInfo | kFSCatInfoDataSizes,
                                 infos, nullptr, nullptr, names);
        for (ItemCount i = 0; i < count; ++i)
            lines.insert(Narrow(std::u16string(names[i].unicode, names[i].unicode + names[i].length)) + " " +
                         std::string(reinterpret_cast<const char*>(infos[i].finderInfo), 4));
    }
    FSCloseIterator(iterator);
    if (result != errFSNoMoreItems) return Told(result);
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

// A sidecar that cannot be opened is an ordinary entry; nothing else may be added or missing.
bool ShowsTheSidecar(const Outcome& outcome) {
    return SaysGone(outcome) || outcome.result.find("._forked") != outcome.result.npos;
}

class Listings : public CatalogFaults {
protected:
    // A file whose metadata cannot be read is listed with the defaults, unless it is to be deleted.
    void ListOver(FSIteratorFlags flags, ItemCount many) {
        unsigned defaults = 0;
        scenario.act = [=, this] { return List(folder.path(), flags, many); };
        scenario.accepts = [&, untyped = Untyped()](const Outcome& outcome) {
            const bool hasDefaults =
                outcome.result == untyped && outcome.failed.ends_with("Input/output error");
            defaults += hasDefaults;
            return hasDefaults || ShowsTheSidecar(outcome);
        };
        Sweep();
        // Once a second a volume is asked for its kind; the calls that are missed by that are met the next time.
        if (flags == kFSIterateFlat && defaults == 0) Sweep();
        EXPECT_EQ(defaults > 0, flags == kFSIterateFlat);
    }

private:
    static std::string Untyped() {
        const std::string none = " " + std::string(4, '\0') + "\n";
        return "forked" + none + "link slnk\nlinked slnk\nplain" + none + "sub" + none + "typed" + none;
    }
};

TEST_F(Listings, Listing) {
    ListOver(kFSIterateFlat, 3);
}

TEST_F(Listings, ListingForDeletion) {
    ListOver(kFSIterateDelete, 1);
}

} // namespace
