#include "sim/node/volumes.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace sim {

namespace fs = std::filesystem;

namespace {
constexpr int NOT_THERE = 2;
constexpr int REFUSED = 5;
}  // namespace

int Volumes::exists(const std::string& path) const
{
    return !readFails && files_.contains(path) ? 1 : 0;
}

int Volumes::read(const std::string& path, std::string& content) const
{
    if (readFails) return REFUSED;
    const auto found = files_.find(path);
    if (found == files_.end()) return NOT_THERE;
    content = found->second;
    return 0;
}

int Volumes::write(const std::string& path, const std::string& content)
{
    if (writeFails) return REFUSED;
    files_[path] = content;
    ++writes;
    return 0;
}

int Volumes::append(const std::string& path, const std::string& content)
{
    if (writeFails) return REFUSED;
    files_[path] += content;
    ++writes;
    return 0;
}

int Volumes::remove(const std::string& path)
{
    if (writeFails) return REFUSED;
    return files_.erase(path) == 1 ? 0 : NOT_THERE;
}

std::string Volumes::save(const std::string& directory) const
{
    for (const auto& [path, content] : files_) {
        const fs::path target = fs::path(directory) / fs::path(path).relative_path();
        std::error_code error;
        fs::create_directories(target.parent_path(), error);
        if (error) return target.parent_path().string() + ": " + error.message();
        std::ofstream out(target, std::ios::binary | std::ios::trunc);
        out.write(content.data(), static_cast<std::streamsize>(content.size()));
        out.close();
        if (!out) return target.string() + ": can't be written";
    }
    return "";
}

std::string Volumes::load(const std::string& directory)
{
    std::error_code error;
    fs::recursive_directory_iterator it(directory, error);
    if (error) return directory + ": " + error.message();
    for (const fs::directory_entry& entry : it) {
        if (!entry.is_regular_file()) continue;
        std::ifstream in(entry.path(), std::ios::binary);
        std::string content{std::istreambuf_iterator<char>(in), {}};
        if (!in.good() && !in.eof()) return entry.path().string() + ": can't be read";
        files_["/" + fs::relative(entry.path(), directory).generic_string()] = std::move(content);
    }
    return "";
}

}  // namespace sim
