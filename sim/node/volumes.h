// volumes.h - The node's file volumes in memory: /d, /c and the compressing volume /gzip/c.
// They outlive restarts of the program and power losses. What is below /gzip/ is held as it was
// written and compressed on its way to the host.
#pragma once
#include "ose/types.h"

#include <map>
#include <string>

namespace sim {

class Volumes {
public:
    // ---- as the program sees them; 0 is done, else ENOENT or EIO --------------------------------
    int exists(const std::string& path) const;            // 1 when it is there
    int read(const std::string& path, std::string& content) const;
    int write(const std::string& path, const std::string& content);
    int append(const std::string& path, const std::string& content);
    int remove(const std::string& path);

    // ---- script ---------------------------------------------------------------------------------
    bool readFails = false;        // volume not mounted
    bool writeFails = false;       // volume full or read-only
    u32 writes = 0;                // write and append calls that succeeded

    const std::map<std::string, std::string>& files() const { return files_; }
    void clear() { files_.clear(); }

    /// Every file below `directory` of the host, its path there being its path here ("d/name" is
    /// "/d/name"). Answers "" or what went wrong. Loading adds to what is there.
    std::string save(const std::string& directory) const;
    std::string load(const std::string& directory);

private:
    std::map<std::string, std::string> files_;
};

}  // namespace sim
