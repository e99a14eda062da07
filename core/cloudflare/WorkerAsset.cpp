#include "core/cloudflare/WorkerAsset.hpp"

#include <fstream>
#include <map>
#include <vector>

#include "core/base/Crypto.hpp"
#include "core/base/Files.hpp"
#include "core/base/Text.hpp"

namespace vorlen {

namespace {

// A multiple of 3 bytes, so that the base64 texts of the pieces join into the
// base64 text of the whole without padding in between.
constexpr std::size_t hashPieceBytes = 3 * 64 * 1024;

std::string extensionOf(const std::filesystem::path& file) {
    const std::string extension = file.extension().string();
    return extension.empty() ? extension : extension.substr(1);
}

}  // namespace

WorkerAsset WorkerAsset::make(std::string path, std::filesystem::path file, std::int64_t size) {
    std::string contentType = workerAssetContentType(file);
    std::string hash = workerAssetHash(file);
    return WorkerAsset{std::move(path), std::move(file), size, std::move(contentType), std::move(hash)};
}

std::string workerAssetHash(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) throwErrno("cannot open", file);
    Sha256Stream digest;
    std::vector<char> piece(hashPieceBytes);
    while (in) {
        in.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        const auto got = static_cast<std::size_t>(in.gcount());
        if (got > 0) digest.update(base64(std::string_view(piece.data(), got)));
    }
    if (in.bad()) throwErrno("cannot read", file);
    digest.update(extensionOf(file));
    return hex(digest.finish()).substr(0, 32);
}

std::string workerAssetContentType(const std::filesystem::path& file) {
    static const std::map<std::string, std::string> types = {
        {"avif", "image/avif"},
        {"bmp", "image/bmp"},
        {"css", "text/css"},
        {"csv", "text/csv"},
        {"gif", "image/gif"},
        {"htm", "text/html"},
        {"html", "text/html"},
        {"ico", "image/vnd.microsoft.icon"},
        {"jpeg", "image/jpeg"},
        {"jpg", "image/jpeg"},
        {"js", "text/javascript"},
        {"json", "application/json"},
        {"m3u8", "application/vnd.apple.mpegurl"},
        {"m4a", "audio/mp4"},
        {"m4s", "video/iso.segment"},
        {"map", "application/json"},
        {"md", "text/markdown"},
        {"mjs", "text/javascript"},
        {"mp3", "audio/mpeg"},
        {"mp4", "video/mp4"},
        {"mpd", "application/dash+xml"},
        {"otf", "font/otf"},
        {"pdf", "application/pdf"},
        {"png", "image/png"},
        {"svg", "image/svg+xml"},
        {"ts", "video/mp2t"},
        {"ttf", "font/ttf"},
        {"txt", "text/plain"},
        {"vtt", "text/vtt"},
        {"wasm", "application/wasm"},
        {"webm", "video/webm"},
        {"webmanifest", "application/manifest+json"},
        {"webp", "image/webp"},
        {"woff", "font/woff"},
        {"woff2", "font/woff2"},
        {"xml", "application/xml"},
        {"zip", "application/zip"},
    };
    const auto found = types.find(asciiLowercased(extensionOf(file)));
    if (found == types.end()) return "application/octet-stream";
    return found->second.starts_with("text/") ? found->second + "; charset=utf-8" : found->second;
}

}  // namespace vorlen
