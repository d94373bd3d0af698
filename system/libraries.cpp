#include "TavPort.h"

#include "platform/bundles.h"
#include "platform/strings.h"

#include <memory>
#include <type_traits>

namespace {

struct Releaser {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};
template <typename Ref>
using Released = std::unique_ptr<std::remove_pointer_t<Ref>, Releaser>;
using String = Released<CFStringRef>;
using URL = Released<CFURLRef>;

OpacTavLibrary* HandleOf(CFBundleRef bundle) {
    return reinterpret_cast<OpacTavLibrary*>(bundle);
}
CFBundleRef BundleOf(OpacTavLibrary* library) {
    return reinterpret_cast<CFBundleRef>(library);
}

// `name` in the folder "contents" of the application's bundle.
CFBundleRef FindInApplication(CFStringRef name) {
    CFBundleRef application = CFBundleGetMainBundle();
    if (!application) return nullptr;
    URL url(CFBundleCopyBundleURL(application));
    String contents(CFStringCreateWithCString(nullptr, "contents", kCFStringEncodingMacRoman));
    if (!url || !contents) return nullptr;
    URL folder(CFURLCreateCopyAppendingPathComponent(nullptr, url.get(), contents.get(), true));
    if (!folder) return nullptr;
    URL library(CFURLCreateCopyAppendingPathComponent(nullptr, folder.get(), name, true));
    return library ? CFBundleCreate(nullptr, library.get()) : nullptr;
}

// `name` as a path of its own.
CFBundleRef FindAtPath(CFStringRef name) {
    URL library(CFURLCreateWithFileSystemPath(nullptr, name, kCFURLPOSIXPathStyle, false));
    return library ? CFBundleCreate(nullptr, library.get()) : nullptr;
}

} // namespace

OpacTavLibrary* TavLoadLibrary(const TavChar* name) {
    String text(CFStringCreateWithCharacters(nullptr, name, static_cast<CFIndex>(tav_wcslen(name))));
    if (!text) return nullptr;
    CFBundleRef bundle = FindInApplication(text.get());
    if (!bundle) bundle = FindAtPath(text.get());
    // kept: a bundle whose code cannot be loaded is returned all the same; its look-ups give null.
    if (bundle) CFBundleLoadExecutable(bundle);
    return HandleOf(bundle);
}

TavProc TavGetProcAddress(OpacTavLibrary* library, const char* symbol) {
    if (!symbol) return nullptr;
    String name(CFStringCreateWithCString(nullptr, symbol, kCFStringEncodingMacRoman));
    void* address = name ? CFBundleGetFunctionPointerForName(BundleOf(library), name.get()) : nullptr;
    return reinterpret_cast<TavProc>(address);
}

int32_t TavFreeLibrary(OpacTavLibrary* library) {
    CFRelease(BundleOf(library));
    return 1;
}
