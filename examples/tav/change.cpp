// cp, mv, rm, mkdir: what changes something.
#include "command.h"

#include "host.h"
#include "text.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::string Folder(const std::string& path) {
    return fs::path(path).parent_path().string();
}

std::string Name(const std::string& path) {
    return fs::path(path).filename().string();
}

bool Holds(const std::string& folder, const std::string& path) {
    return path.compare(0, folder.size() + 1, folder + "/") == 0;
}

// Where a copy or a moved object goes: into a folder that is there, else under the very name.
std::string Target(const std::string& source, const std::string& destination) {
    return host::IsFolder(destination) ? (fs::path(destination) / Name(source)).string() : destination;
}

// A new name alone: in it "/" stands for a ":" of the path.
bool Rename(const std::string& path, const std::string& newName) {
    Text name = Units(newName);
    std::replace(name.begin(), name.end(), TavChar{':'}, TavChar{'/'});
    return TavFileRenameExt(At(path).get(), name.c_str(), nullptr);
}

bool Delete(const std::string& path) {
    return TavFileDeleteExt(At(path).get());
}

// A name in the path's folder that nothing else has; it begins with "." and so is hidden.
std::string Beside(const std::string& path, const char* what) {
    return (fs::path(Folder(path)) / (".tav-" + std::string(what) + "-" + std::to_string(getpid()))).string();
}

int ComplainWorkingFolder(const std::string& path) {
    return Complain(path, "is the working folder or above it; change to another folder first");
}

// ---- Copying

// How far a copy is, on a line of its own that goes when it is done; only on a terminal.
class Progress {
public:
    Progress(std::string copy, uint64_t bytes)
        : copy_(std::move(copy)), bytes_(bytes), shown_(host::IsTerminal(2)) {}
    ~Progress() {
        if (shown_) std::fprintf(stderr, "\r\x1b[K");
    }

    void Show() const {
        if (!shown_) return;
        const uint64_t done = std::min(host::Survey(copy_).bytes, bytes_);
        const int percent = bytes_ == 0 ? 100 : static_cast<int>(100 * done / bytes_);
        const int kWidth = 40;
        std::string bar(static_cast<size_t>(kWidth * percent / 100), '#');
        bar.resize(kWidth, '.');
        std::fprintf(stderr, "\r[%s] %3d %%  %s of %s bytes", bar.c_str(), percent, WithCommas(done).c_str(),
                     WithCommas(bytes_).c_str());
        std::fflush(stderr);
    }

private:
    const std::string copy_;
    const uint64_t bytes_;
    const bool shown_;
};

// The library skips items that cannot be copied; a person wants to know which.
std::vector<std::string> Missing(const host::Tree& source, const std::string& copy) {
    std::vector<std::string> missing;
    for (const std::string& item : source.items) {
        if (!host::Exists(copy + item)) missing.push_back(item);
    }
    return missing;
}

int ReportMissing(const std::string& source, const std::vector<std::string>& missing) {
    const size_t kNamed = 5;
    for (size_t i = 0; i < missing.size() && i < kNamed; ++i) {
        Complain(source + missing[i], "left out: " + host::Reason(source + missing[i], false));
    }
    if (missing.size() > kNamed) Complain(source, WithCommas(missing.size()) + " items were left out");
    return kFailed;
}

// Takes away a copy that is not to be; what cannot be deleted is named.
void Discard(const std::string& copy) {
    if (host::Exists(copy) && !Delete(copy))
        Complain(copy, "is left of the copy and cannot be deleted whole");
}

// Puts the complete copy in the target's place. What was there keeps a name of its own until that is done.
int PutInPlace(const std::string& copy, const std::string& target) {
    if (!host::Exists(target)) {
        if (Rename(copy, Name(target))) return kDone;
        Discard(copy);
        return Complain(target, host::Reason(target, true));
    }
    const std::string old = Beside(target, "old");
    if (!Rename(target, Name(old))) {
        Discard(copy);
        return Complain(target, "cannot be replaced: " + host::Reason(target, true));
    }
    if (!Rename(copy, Name(target))) {
        Rename(old, Name(target));
        Discard(copy);
        return Complain(target, "cannot be replaced");
    }
    if (!Delete(old)) return Complain(old, "holds what was replaced and cannot be deleted whole");
    // Done is done: the exit code stays, but who pressed Ctrl-C must know.
    if (host::Interrupted()) Complain(target, "was replaced; the interrupt came too late");
    return kDone;
}

int CopyTo(const std::string& source, const std::string& target) {
    const host::SignalsNoted noted;
    const std::string copy = Beside(target, "new");
    const host::Tree tree = host::Survey(source);
    const bool tooLarge = tree.bytes > host::FreeBytes(Folder(target));
    host::Outcome outcome;
    {
        const Progress progress(copy, tree.bytes);
        outcome = host::RunStoppable(
            [&] { return TavCopyFile(Units(source).c_str(), Units(copy).c_str(), 1) != 0; },
            [&] { progress.Show(); });
    }
    const std::vector<std::string> missing = Missing(tree, copy);
    const bool full = tooLarge || host::FreeBytes(Folder(target)) < (1 << 16);
    if (host::Interrupted()) outcome = host::Outcome::kInterrupted;
    if (outcome == host::Outcome::kDone && (missing.empty() || !full)) {
        const int result = PutInPlace(copy, target);
        return result == kDone && !missing.empty() ? ReportMissing(source, missing) : result;
    }
    Discard(copy);
    if (outcome == host::Outcome::kInterrupted) return Complain(target, "interrupted; nothing was changed");
    if (full) return Complain(target, "the disk is full; nothing was changed");
    if (!host::Exists(source)) return Complain(source, host::Reason(source, false));
    const std::string why = host::Reason(source, false);
    if (access(source.c_str(), R_OK) != 0) return Complain(source, why);
    return Complain(target, host::Reason(target, true));
}

// ---- Moving

int MoveTo(const std::string& source, const std::string& target) {
    if (Folder(source) == Folder(target)) {
        return Rename(source, Name(target)) ? kDone : Complain(target, host::Reason(target, true));
    }
    const Reference folder = At(Folder(target));
    if (!TavPathIsSameRoot(Units(source).c_str(), Units(Folder(target) + "/").c_str())) {
        return Complain(target, "is on another drive; copy it with cp and delete it with rm");
    }
    if (!TavFileMoveFileExt(At(source).get(), folder.get()))
        return Complain(source, host::Reason(Folder(target), true));
    const std::string moved = (fs::path(Folder(target)) / Name(source)).string();
    if (moved == target || Rename(moved, Name(target))) return kDone;
    TavFileMoveFileExt(At(moved).get(), At(Folder(source)).get());
    return Complain(target, host::Reason(target, true));
}

// ---- Deleting and making

int RemoveOne(const std::string& path, bool folders) {
    if (!host::Exists(path)) return Complain(path, host::Reason(path, false));
    host::Facts facts;
    host::Look(path, facts);
    if (facts.kind == "folder" && !folders)
        return Complain(path, "is a folder; -r deletes it with everything in it");
    if (host::HoldsWorkingFolder(path)) return ComplainWorkingFolder(path);
    switch (host::RunStoppable([&] { return Delete(path); }, [] {})) {
    case host::Outcome::kDone:
        return kDone;
    case host::Outcome::kInterrupted:
        return Complain(path, host::Exists(path) ? "interrupted; a part of it may be deleted"
                                                 : "interrupted when it was deleted");
    default:
        return Complain(path, "cannot be deleted whole: " + host::Reason(path, true));
    }
}

// No folder can be created with ":" in its name, but one that is there can be renamed to it.
bool MakeFolder(const std::string& path) {
    if (Name(path).find(':') == std::string::npos) return TavFolderCreateExt(At(path).get());
    if (host::Exists(path)) return false;
    const std::string made = Beside(path, "new");
    if (!TavFolderCreateExt(At(made).get())) return false;
    if (Rename(made, Name(path))) return true;
    TavFolderDeleteExt(At(made).get());
    return false;
}

} // namespace

int Copy(const Options& options) {
    const std::string source = host::Absolute(options.arguments[0]);
    const std::string target = Target(source, host::Absolute(options.arguments[1]));
    if (!host::Exists(source)) return Complain(source, host::Reason(source, false));
    if (!host::IsFolder(Folder(target))) return Complain(Folder(target), "is no folder");
    if (source == target) return Complain(source, "is the destination itself");
    if (host::Exists(target) && !options.Has('f'))
        return Complain(target, "is there already; -f replaces it");
    if (Holds(source, target)) return Complain(target, "lies in what is to be copied");
    if (Holds(target, source)) return Complain(target, "holds what is to be copied");
    if (host::HoldsWorkingFolder(target)) return ComplainWorkingFolder(target);
    return CopyTo(source, target);
}

int Move(const Options& options) {
    const std::string source = host::Absolute(options.arguments[0]);
    const std::string target = Target(source, host::Absolute(options.arguments[1]));
    if (!host::Exists(source)) return Complain(source, host::Reason(source, false));
    if (Holds(source, target)) return Complain(target, "lies in what is to be moved");
    if (host::Exists(target)) return Complain(target, "is there already");
    if (!host::IsFolder(Folder(target))) return Complain(Folder(target), "is no folder");
    const host::SignalsNoted noted; // not to end between the two steps of a move
    return MoveTo(source, target);
}

int Remove(const Options& options) {
    const host::SignalsNoted noted;
    int result = kDone;
    size_t done = 0;
    for (const std::string& argument : options.arguments) {
        if (host::Interrupted()) {
            result = kFailed;
            break;
        }
        if (RemoveOne(host::Absolute(argument), options.Has('r')) == kDone) {
            ++done;
        } else {
            result = kFailed;
        }
    }
    if (host::Interrupted() && options.arguments.size() > 1) {
        Complain("rm",
                 std::to_string(done) + " of " + std::to_string(options.arguments.size()) + " were deleted");
    }
    return result;
}

int MakeFolders(const Options& options) {
    const host::SignalsNoted noted;
    int result = kDone;
    for (const std::string& argument : options.arguments) {
        const std::string path = host::Absolute(argument);
        if (MakeFolder(path)) continue;
        result = Complain(path, host::Exists(path) ? "is there already" : host::Reason(path, true));
    }
    return result;
}
