#include "support/locales.h"

#include <clocale>
#include <cstdlib>

LocaleWithComma::LocaleWithComma()
    : exists_(setenv("LOCPATH", TAVPORT_TEST_LOCALES, 1) == 0 && setlocale(LC_ALL, "comma")) {}

LocaleWithComma::~LocaleWithComma() {
    setlocale(LC_ALL, "C");
}
