/* What an application writes, in the language that C and C++ share: compiled by the header check in every
   dialect. */
#include "TavPort.h"

#include "TavPort.h" /* twice, as applications do */

extern const TavChar* text;
extern TavKey key;
extern size_t unit_size;

const TavChar* text = u"text";
TavKey key = 0;
size_t unit_size = sizeof(TavChar);

/* The call sequences that the header shows. */
int uses(void);

static OpacTavFSRef* use_virtual_paths(void) {
    TavKey pref = TAV_KEY('p', 'r', 'e', 'f');
    OpacTavFSRef* settings = Tav0FSRCreateWithPath(u"/home/ann/settings");
    FSRef folder;
    if (Tav0FSRToAbs(settings, &folder, 0)) Tav0TranPathRegister(&pref, &folder);
    Tav0FSRRelease(settings);
    MyStr16 lang = {"lang"};
    Tav0FSValRegister(&lang, u"en");
    OpacTavFSExp* e = Tav0FSExpCreateTK((const char*)&pref);
    Tav0FSExpAppendVal(e, "lang");
    Tav0FSExpAppendSeg(e, u"Data/file.txt");
    OpacTavFSRef* r = Tav0FSExpCalculateFSRCreate(e, NULL);
    Tav0FSExpRelease(e);
    return r;
}

static int use_text(void) {
    TavChar* wide = Tav0UTF16FromUTF8("caf\303\251");
    if (wide) Tav0UTFRelease(wide);
    TavChar name[64];
    tav_wcscpy(name, u"Read me");
    const TavChar* s = name;
    while (tav_iswspace(*s)) ++s;
    TavChar first = tav_towupper(*s);
    return tav_wcscmpi(name, u"READ ME") == 0 && first == 'R';
}

int uses(void) {
    OpacTavFSRef* folder = use_virtual_paths();
    OpacTavFSRef* file = Tav0FSRAppendPathComponent(folder, u"notes.txt");
    int exists = Tav0FSRIsExist(file);
    Tav0FSRRelease(file);
    Tav0FSRRelease(folder);
    const int32_t* header = rgTavInitDataW;
    return exists + use_text() + (header == _tavtmpDataNilW) + *_tavtmpPchNilW + *_tavtmpPchNilA +
           rgTavInitDataA[0];
}
