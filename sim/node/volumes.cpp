#include "sim/node/volumes.h"

#include <zlib.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace sim {

namespace fs = std::filesystem;

namespace {

constexpr int NOT_THERE = ENOENT;
constexpr int REFUSED = EIO;

constexpr int GZIP_WINDOW = 15 + 16;           // zlib's way to ask for the gzip format

bool isCompressed(const std::string& path) { return path.starts_with("/gzip/"); }

z_stream over(const std::string& content)
{
    z_stream z{};
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(content.data()));
    z.avail_in = static_cast<uInt>(content.size());
    return z;
}

/// Runs `step` (deflate or inflate) over the whole input; the answer is zlib's last result.
template <typename Step>
int run(z_stream& z, std::string& out, Step step)
{
    char piece[16384];
    int result = Z_OK;
    while (result == Z_OK) {
        z.next_out = reinterpret_cast<Bytef*>(piece);
        z.avail_out = sizeof piece;
        result = step(&z);
        out.append(piece, sizeof piece - z.avail_out);
    }
    return result;
}

std::string compressed(const std::string& content)
{
    z_stream z = over(content);
    std::string out;
    deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, GZIP_WINDOW, 8, Z_DEFAULT_STRATEGY);
    run(z, out, [](z_stream* at) { return deflate(at, Z_FINISH); });
    deflateEnd(&z);
    return out;
}

/// False when `content` isn't a whole gzip file.
bool expand(const std::string& content, std::string& out)
{
    z_stream z = over(content);
    inflateInit2(&z, GZIP_WINDOW);
    const int result = run(z, out, [](z_stream* at) { return inflate(at, Z_NO_FLUSH); });
    inflateEnd(&z);
    return result == Z_STREAM_END;
}

}  // namespace

int Volumes::exists(const std::string& path) const { return !readFails && files_.contains(path) ? 1 : 0; }

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
        const std::string bytes = isCompressed(path) ? compressed(content) : content;
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
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
        const std::string path = "/" + fs::relative(entry.path(), directory).generic_string();
        if (isCompressed(path)) {
            std::string plain;
            if (!expand(content, plain)) return entry.path().string() + ": isn't a gzip file";
            content = std::move(plain);
        }
        files_[path] = std::move(content);
    }
    return "";
}

}  // namespace sim
