// A volume with one folder in it whose entries are as odd as a test wants: names longer than disks of this
// system have, or files that nobody can look at.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

class OddVolume {
public:
    struct Entry {
        std::string name;
        int error = 0; // what looking at it gives
    };

    // Why none can be had here; empty when one can.
    static std::string Unsupported();

    // Mounts on a folder that is there already, for the calling thread and those who share its mounts; `Missing`
    // tells why that failed.
    OddVolume(std::string folder, std::vector<Entry> entries);
    ~OddVolume();
    OddVolume(const OddVolume&) = delete;
    OddVolume& operator=(const OddVolume&) = delete;

    const std::string& Missing() const { return missing_; }

private:
    void Serve();
    void Answer(const char* request);

    std::string folder_;
    std::vector<Entry> entries_;
    std::string missing_;
    int device_ = -1;
    std::atomic<bool> stop_ = false;
    std::thread server_;
};
