// Helpers that tests of every subsystem share.
#pragma once

#include <filesystem>
#include <string>

// A folder of its own for one test, removed with everything in it when the test ends.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

// Writes `content` to a new or emptied file.
void WriteFile(const std::string& path, const std::string& content);
std::string ReadFile(const std::string& path);

// How many descriptors the process has open, the one that counts them among them.
size_t OpenDescriptors();

// UTF-8 and UTF-16 for ASCII and well-formed text, independent of the code under test.
std::u16string Wide(const std::string& utf8);
std::string Narrow(const std::u16string& units);
