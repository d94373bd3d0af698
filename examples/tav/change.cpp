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
        std::fprintf(stderr, "\r[%s] %3d %%  %s of %s", bar.c_str(), percent, WithCommas(done).c_str(),
                     ByteCount(bytes_).c_str());
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

// What keeps an item of a tree from being copied.
std::string ReasonLeftOut(const std::string& source, const std::string& target) {
    const std::string obstacle = host::Obstacle(source, false);
    return obstacle.empty() ? host::Reason(target, true) : obstacle;
}

int ReportLeftOut(const std::string& source, const std::string& target,
                  const std::vector<std::string>& items) {
    const size_t kNamed = 5;
    for (size_t i = 0; i < items.size() && i < kNamed; ++i) {
        Complain(source + items[i], "left out: " + ReasonLeftOut(source + items[i], target + items[i]));
    }
    if (items.size() > kNamed) Complain(source, WithCommas(items.size()) + " items were left out");
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

// Why there is no copy at all.
int ComplainOfCopy(const std::string& source, const std::string& copy, const std::string& target) {
    const std::string there = host::Obstacle(copy, true);
    if (!there.empty()) return Complain(target, there);
    const std::string here = host::Obstacle(source, false);
    return here.empty() ? Complain(target, host::Reason(copy, true)) : Complain(source, here);
}

int CopyTo(const std::string& source, const std::string& target) {
    const host::SignalsNoted noted;
    const std::string copy = Beside(target, "new");
    const host::Tree tree = host::Survey(source);
    const bool tooLarge = host::IsFull(Folder(target), tree.bytes);
    host::Outcome outcome;
    {
        const Progress progress(copy, tree.bytes);
        outcome = host::RunStoppable(
            [&] { return TavCopyFile(Units(source).c_str(), Units(copy).c_str(), 1) != 0; },
            [&] { progress.Show(); });
    }
    std::vector<std::string> leftOut = Missing(tree, copy);
    const bool full = tooLarge || host::IsFull(Folder(target), 1 << 16);
    if (host::Interrupted()) outcome = host::Outcome::kInterrupted;
    if (outcome == host::Outcome::kDone && (leftOut.empty() || !full)) {
        const int result = PutInPlace(copy, target);
        leftOut.insert(leftOut.end(), tree.unreadable.begin(), tree.unreadable.end());
        if (!tree.error.empty()) Complain(source, "may not be copied whole: " + tree.error);
        if (result == kDone && !leftOut.empty()) ReportLeftOut(source, target, leftOut);
        return leftOut.empty() && tree.error.empty() ? result : kFailed;
    }
    Discard(copy);
    if (outcome == host::Outcome::kInterrupted) return Complain(target, "interrupted; nothing was changed");
    if (full) return Complain(target, "the disk is full; nothing was changed");
    return ComplainOfCopy(source, copy, target);
}

// ---- Moving

int ComplainOfMove(const std::string& source, const std::string& target) {
    const std::string here = host::Obstacle(source, true);
    return here.empty() ? Complain(target, host::Reason(target, true)) : Complain(source, here);
}

// Moves what is at `path` into the target's folder, and gives it the target's name there.
bool MoveAndName(const std::string& path, const std::string& target) {
    if (!TavFileMoveFileExt(At(path).get(), At(Folder(target)).get())) return false;
    const std::string moved = (fs::path(Folder(target)) / Name(path)).string();
    if (moved == target || Rename(moved, Name(target))) return true;
    TavFileMoveFileExt(At(moved).get(), At(Folder(path)).get());
    return false;
}

int MoveTo(const std::string& source, const std::string& target) {
    if (Folder(source) == Folder(target)) {
        return Rename(source, Name(target)) ? kDone : ComplainOfMove(source, target);
    }
    if (!TavPathIsSameRoot(Units(source).c_str(), Units(Folder(target) + "/").c_str())) {
        return Complain(target, "is on another drive; copy it with cp and delete it with rm");
    }
    if (Name(source) == Name(target))
        return MoveAndName(source, target) ? kDone : ComplainOfMove(source, target);
    // On the way it has a name that neither folder knows.
    const std::string between = Beside(source, "mv");
    if (!Rename(source, Name(between))) return ComplainOfMove(source, target);
    if (MoveAndName(between, target)) return kDone;
    if (!Rename(between, Name(source))) {
        const std::string there = (fs::path(Folder(target)) / Name(between)).string();
        Complain(source, "is now " + (host::Exists(between) ? between : there));
    }
    return ComplainOfMove(source, target);
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
        break;
    }
    if (facts.kind != "folder") return Complain(path, "cannot be deleted: " + host::Reason(path, true));
    const std::string obstacle = host::Obstacle(path, true);
    return Complain(path,
                    "cannot be deleted whole: " +
                        (obstacle.empty() ? "something in it may not be deleted or is mounted" : obstacle));
}

// Whether a source is there, and source and destination are folders where a "/" at their end says so.
bool Fit(const std::string& source, const std::string& destination) {
    const std::string from = host::Absolute(source);
    const std::string to = host::Absolute(destination);
    if (!host::Exists(from)) {
        Complain(from, host::Reason(from, false));
        return false;
    }
    if (IsNoFolder(source) || IsNoFolder(destination)) return false;
    if (destination.back() != '/' || host::Exists(to) || host::IsFolder(from)) return true;
    Complain(to, "is no folder");
    return false;
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
    if (!Fit(options.arguments[0], options.arguments[1])) return kFailed;
    if (host::IsSpecial(source)) return Complain(source, "it is a device, pipe or socket");
    if (!host::IsReadable(source)) return Complain(source, host::Reason(source, false));
    if (!host::IsSizeKnown(source))
        return Complain(source, "its size is unknown until it is read; cat reads it");
    if (!host::IsFolder(Folder(target))) return Complain(Folder(target), "is no folder");
    if (!IsText(Folder(target))) return Complain(Folder(target), "its name is no text");
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
    if (!Fit(options.arguments[0], options.arguments[1])) return kFailed;
    if (Holds(source, target)) return Complain(target, "lies in what is to be moved");
    if (host::Exists(target)) return Complain(target, "is there already");
    if (!host::IsFolder(Folder(target))) return Complain(Folder(target), "is no folder");
    const host::SignalsNoted noted; // not to end between the steps of a move
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
        if (!IsNoFolder(argument) && RemoveOne(host::Absolute(argument), options.Has('r')) == kDone) {
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
