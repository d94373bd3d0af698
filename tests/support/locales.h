// Locales other than the one that programs start in.
#pragma once

// The process is in a locale whose decimal point is a comma while this lives. It was made beside the tests.
class LocaleWithComma {
public:
    LocaleWithComma();
    ~LocaleWithComma();
    LocaleWithComma(const LocaleWithComma&) = delete;
    LocaleWithComma& operator=(const LocaleWithComma&) = delete;

    bool exists() const { return exists_; }

private:
    bool exists_;
};
