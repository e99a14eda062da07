#include "core/storage/FolderBucket.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <system_error>

#include <fmt/format.h>

#include "core/base/Clock.hpp"
#include "core/base/Crypto.hpp"
#include "core/base/Dates.hpp"
#include "core/base/Files.hpp"
#include "core/base/Json.hpp"
#include "core/base/Log.hpp"
#include "core/base/Random.hpp"
#include "core/base/Task.hpp"

namespace vorlen {

namespace {

constexpr std::size_t pieceSize = 262144;
constexpr std::size_t longestSegment = 250;
constexpr std::string_view idAlphabet = "abcdefghijklmnopqrstuvwxyz0123456789";

std::string errorBody(std::string_view code, std::string_view message) {
    return fmt::format("<?xml version=\"1.0\" encoding=\"UTF-8\"?><Error><Code>{}</Code><Message>{}</Message></Error>",
                       code, message);
}

VorlenError noSuchUpload() {
    return VorlenError::status(404, errorBody("NoSuchUpload", "The specified multipart upload does not exist."));
}



// Copies a range of `from` to the end of `out` in pieces, with the body's pacing
// and reports when a body is given.
void appendRange(int out, const fs::path& outPath, const fs::path& from, std::uint64_t offset, std::uint64_t length,
                 Md5Stream& digest, const RequestBody* body) {
    FileHandle in(from, O_RDONLY);
    std::string piece;
    while (length > 0) {
        checkCancellation();
        piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(length, pieceSize)));
        ssize_t n = ::pread(in.fd(), piece.data(), piece.size(), static_cast<off_t>(offset));
        if (n < 0) {
            if (errno == EINTR) continue;
            throwErrno("cannot read", from);
        }
        if (n == 0) throw std::runtime_error("The file is shorter than planned.");
        piece.resize(static_cast<std::size_t>(n));
        if (body && body->limiter) body->limiter->reserve(piece.size());
        writeAll(out, piece, outPath);
        digest.update(piece);
        if (body && body->onSend) body->onSend(piece.size());
        offset += static_cast<std::uint64_t>(n);
        length -= static_cast<std::uint64_t>(n);
    }
}

struct Written {
    Digest128 digest;
    std::uint64_t size = 0;
};

Written writeBody(const RequestBody& body, const fs::path& path) {
    FileHandle out(path, O_WRONLY | O_CREAT | O_EXCL);
    Md5Stream digest;
    if (auto* data = std::get_if<std::string>(&body.content)) {
        checkCancellation();
        writeAll(out.fd(), *data, path);
        digest.update(*data);
        if (body.onSend && !data->empty()) body.onSend(data->size());
    } else {
        auto& file = std::get<RequestBody::FileRange>(body.content);
        appendRange(out.fd(), path, file.path, file.range.offset, file.range.length, digest, &body);
    }
    if (::fsync(out.fd()) != 0) throwErrno("cannot flush", path);
    return {digest.finish(), body.size()};
}

// Removes a temporary file unless it was renamed into place.
struct TemporaryFile {
    fs::path path;
    ~TemporaryFile() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
};

Json headersJson(const ObjectHeaders& headers) {
    Json metadata = Json::object();
    for (auto& [name, value] : headers.metadata) {
        std::string lower = name;
        std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
        metadata[lower] = value;
    }
    return Json{{"contentType", headers.contentType}, {"cacheControl", headers.cacheControl}, {"metadata", metadata}};
}

std::optional<Json> readJson(const fs::path& path) {
    std::error_code error;
    if (!fs::is_regular_file(path, error)) return std::nullopt;
    return decodeJson(readFile(path));
}

}  // namespace

// flock on "<root>/.lock": held by an open file description, so it separates
// threads of one process as well as processes.
class FolderBucket::Lock {
public:
    Lock(const fs::path& root, bool exclusive) : file_(root / ".lock", O_RDWR | O_CREAT) {
        while (::flock(file_.fd(), exclusive ? LOCK_EX : LOCK_SH) != 0) {
            if (errno != EINTR) throwErrno("cannot lock", root / ".lock");
        }
    }

private:
    FileHandle file_;
};

// Paths relative to the root. The record carries small files whole (the
// headers records), so that they need no flush of their own.
struct FolderBucket::Change {
    std::vector<std::pair<fs::path, fs::path>> renames;
    std::vector<std::pair<fs::path, std::string>> writes;
    std::vector<fs::path> removals;
};

FolderBucket::FolderBucket(fs::path root, std::size_t pageSize) : root_(std::move(root)), pageSize_(pageSize) {
    for (auto folder : {"objects", ".meta", ".uploads", ".tmp", ".pending"}) fs::create_directories(root_ / folder);
    Lock lock(root_, true);
    recover();
}

fs::path FolderBucket::objectPath(const std::string& key) const { return root_ / "objects" / key; }
fs::path FolderBucket::metaPath(const std::string& key) const { return root_ / ".meta" / (sha256Hex(key) + ".json"); }
fs::path FolderBucket::uploadPath(const std::string& uploadID) const { return root_ / ".uploads" / uploadID; }
fs::path FolderBucket::temporaryPath(const std::string& suffix) const {
    return root_ / ".tmp" / (randomString(20, idAlphabet) + suffix);
}

namespace {

bool isStorable(std::string_view key) {
    bool storable = !key.empty() && key.find('\0') == std::string_view::npos;
    std::size_t start = 0;
    while (storable) {
        std::size_t end = key.find('/', start);
        std::string_view segment = key.substr(start, end == std::string_view::npos ? end : end - start);
        storable = !segment.empty() && segment != "." && segment != ".." && segment.size() <= longestSegment;
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    return storable;
}

}  // namespace

void FolderBucket::checkStorable(const std::string& key) const {
    if (!isStorable(key)) throw VorlenError::config("“" + key + "” cannot be kept in a folder bucket");
}

// A prefix is the start of a key, or a folder of keys with its "/": the listing
// walks the folder before the last "/", which must not lie outside objects/.
void FolderBucket::checkListable(const std::string& prefix) const {
    std::string_view start = prefix;
    if (start.ends_with('/')) start.remove_suffix(1);
    if (!prefix.empty() && !isStorable(start))
        throw VorlenError::config("“" + prefix + "” cannot be kept in a folder bucket");
}

void FolderBucket::recover() {
    std::vector<fs::path> records;
    for (auto& entry : fs::directory_iterator(root_ / ".pending"))
        if (entry.path().extension() == ".json") records.push_back(entry.path());
    for (auto& record : records) finishPending(record);
}

namespace {

// Every path that a change record names, which must all lie inside the root.
std::vector<fs::path> pathsOf(const Json& change) {
    std::vector<fs::path> paths;
    for (auto& rename : change.at("renames")) {
        paths.emplace_back(rename.at(0).get<std::string>());
        paths.emplace_back(rename.at(1).get<std::string>());
    }
    for (auto& write : change.at("writes")) paths.emplace_back(write.at(0).get<std::string>());
    for (auto& removal : change.at("removals")) paths.emplace_back(removal.get<std::string>());
    return paths;
}

bool staysInside(const fs::path& relative) {
    if (relative.empty() || relative.has_root_path()) return false;
    return std::none_of(relative.begin(), relative.end(), [](const fs::path& part) { return part == ".."; });
}

}  // namespace

void FolderBucket::finishPending(const fs::path& record) {
    Json change = decodeJson(readFile(record));
    // This class records only paths relative to the root. A record with an absolute
    // path or a ".." step was damaged or put there by someone else: it is dropped
    // whole, with none of its steps done, so that it cannot move or remove a file
    // outside the bucket.
    auto paths = pathsOf(change);
    if (!std::all_of(paths.begin(), paths.end(), staysInside)) {
        log().warn("A change record of the folder bucket {} names a path outside it; it was dropped without being done.",
                   root_.string());
        fs::remove(record);
        return;
    }
    for (auto& rename : change.at("renames")) {
        fs::path from = root_ / rename.at(0).get<std::string>();
        fs::path to = root_ / rename.at(1).get<std::string>();
        if (!fs::exists(from)) continue;
        fs::create_directories(to.parent_path());
        fs::rename(from, to);
    }
    for (auto& write : change.at("writes")) {
        fs::path path = root_ / write.at(0).get<std::string>();
        fs::path temporary = path;
        temporary += ".tmp";
        {
            FileHandle out(temporary, O_WRONLY | O_CREAT | O_TRUNC);
            auto content = write.at(1).get<std::string>();
            writeAll(out.fd(), content, temporary);
        }
        fs::rename(temporary, path);
    }
    for (auto& removal : change.at("removals")) {
        fs::path path = root_ / removal.get<std::string>();
        fs::remove_all(path);
        // Empty folders of removed objects go too, so a key may later become a folder.
        fs::path objects = root_ / "objects";
        for (fs::path folder = path.parent_path(); folder != objects && folder.string().starts_with(objects.string());
             folder = folder.parent_path()) {
            std::error_code notEmpty;
            if (!fs::remove(folder, notEmpty)) break;
        }
    }
    fs::remove(record);
}

void FolderBucket::commit(const Change& change) {
    Json renames = Json::array();
    for (auto& [from, to] : change.renames) renames.push_back({from.generic_string(), to.generic_string()});
    Json writes = Json::array();
    for (auto& [path, content] : change.writes) writes.push_back({path.generic_string(), content});
    Json removals = Json::array();
    for (auto& removal : change.removals) removals.push_back(removal.generic_string());
    fs::path record = root_ / ".pending" / (randomString(20, idAlphabet) + ".json");
    writeFileAtomically(record, encodeJson(Json{{"renames", renames}, {"writes", writes}, {"removals", removals}}));
    finishPending(record);
}

std::optional<std::string> FolderBucket::currentETag(const std::string& key) const {
    auto meta = readJson(metaPath(key));
    if (!meta) return std::nullopt;
    return meta->at("etag").get<std::string>();
}

namespace {

// The key must not run through an object as if it were a folder, nor land on a folder.
void checkNoClash(const fs::path& objects, const std::string& key) {
    fs::path path = objects / key;
    std::error_code error;
    bool clash = fs::is_directory(path, error);
    for (fs::path folder = path.parent_path(); !clash && folder != objects; folder = folder.parent_path())
        clash = fs::exists(folder, error) && !fs::is_directory(folder, error);
    if (clash) throw VorlenError::config("“" + key + "” cannot be kept in a folder bucket");
}

fs::path relativeTo(const fs::path& root, const fs::path& path) { return path.lexically_relative(root); }

}  // namespace

std::optional<std::string> FolderBucket::put(const std::string& key, const RequestBody& body,
                                             const ObjectHeaders& headers,
                                             const std::optional<WriteCondition>& condition) {
    checkStorable(key);
    TemporaryFile data{temporaryPath(".data")};
    Written written = writeBody(body, data.path);
    std::string etag = "\"" + hex(written.digest) + "\"";
    Json meta = headersJson(headers);
    meta["key"] = key;
    meta["etag"] = etag;
    meta["size"] = written.size;
    meta["lastModified"] = formatIso8601(wallNow());

    Lock lock(root_, true);
    recover();
    if (condition) {
        auto current = currentETag(key);
        bool holds = std::visit(
            [&](auto& value) {
                using T = std::decay_t<decltype(value)>;
                if constexpr (std::is_same_v<T, WriteCondition::Absent>) return !current.has_value();
                else return current.has_value() && unquotedETag(*current) == unquotedETag(value.etag);
            },
            condition->value);
        if (!holds) throw VorlenError::conflict(key);
    }
    checkNoClash(root_ / "objects", key);
    commit({{{relativeTo(root_, data.path), relativeTo(root_, objectPath(key))}},
            {{relativeTo(root_, metaPath(key)), encodeJson(meta)}},
            {}});
    return etag;
}

void FolderBucket::remove(const std::string& key) {
    try {
        checkStorable(key);
    } catch (const VorlenError&) {
        return;  // no such object can exist
    }
    Lock lock(root_, true);
    recover();
    std::error_code error;
    if (!fs::exists(metaPath(key), error) && !fs::is_regular_file(objectPath(key), error)) return;
    Change change;
    change.removals.push_back(relativeTo(root_, metaPath(key)));
    if (fs::is_regular_file(objectPath(key), error)) change.removals.push_back(relativeTo(root_, objectPath(key)));
    commit(change);
}

std::vector<DeleteFailure> FolderBucket::deleteObjects(const std::vector<std::string>& keys) {
    std::vector<DeleteFailure> failures;
    for (auto& key : keys) {
        checkCancellation();
        try {
            remove(key);
        } catch (const std::exception& error) {
            failures.push_back({key, "InternalError", error.what()});
        }
    }
    return failures;
}

void FolderBucket::copy(const std::string& from, const std::string& to) {
    checkStorable(from);
    checkStorable(to);
    Lock lock(root_, true);
    recover();
    auto meta = readJson(metaPath(from));
    if (!meta) throw VorlenError::status(404, errorBody("NoSuchKey", "The specified key does not exist."));
    TemporaryFile data{temporaryPath(".data")};
    {
        FileHandle out(data.path, O_WRONLY | O_CREAT | O_EXCL);
        Md5Stream ignored;
        appendRange(out.fd(), data.path, objectPath(from), 0, meta->at("size").get<std::uint64_t>(), ignored, nullptr);
        if (::fsync(out.fd()) != 0) throwErrno("cannot flush", data.path);
    }
    (*meta)["key"] = to;
    (*meta)["lastModified"] = formatIso8601(wallNow());
    checkNoClash(root_ / "objects", to);
    commit({{{relativeTo(root_, data.path), relativeTo(root_, objectPath(to))}},
            {{relativeTo(root_, metaPath(to)), encodeJson(*meta)}},
            {}});
}

std::vector<std::string> FolderBucket::keysWithPrefix(const std::string& prefix) const {
    fs::path objects = root_ / "objects";
    auto slash = prefix.rfind('/');
    fs::path start = slash == std::string::npos ? objects : objects / prefix.substr(0, slash);
    std::vector<std::string> keys;
    std::error_code error;
    if (!fs::is_directory(start, error)) return keys;
    for (auto it = fs::recursive_directory_iterator(start); it != fs::recursive_directory_iterator(); ++it) {
        if (!it->is_regular_file()) continue;
        std::string key = it->path().lexically_relative(objects).generic_string();
        if (key.starts_with(prefix) && fs::exists(metaPath(key), error)) keys.push_back(std::move(key));
    }
    std::sort(keys.begin(), keys.end());  // std::string compares bytes as unsigned: UTF-8 order
    return keys;
}

// Readers first finish any change that a crash left behind.
void FolderBucket::finishLeftovers() {
    std::error_code error;
    if (fs::directory_iterator(root_ / ".pending", error) == fs::directory_iterator()) return;
    Lock lock(root_, true);
    recover();
}

bool FolderBucket::hasObjects(const std::string& prefix) {
    checkListable(prefix);
    finishLeftovers();
    Lock lock(root_, false);
    return !keysWithPrefix(prefix).empty();
}

template <class F>
auto FolderBucket::readStored(const std::string& key, F read) -> std::optional<decltype(read(std::declval<const Json&>()))> {
    try {
        checkStorable(key);
    } catch (const VorlenError&) {
        return std::nullopt;
    }
    finishLeftovers();
    Lock lock(root_, false);
    auto meta = readJson(metaPath(key));
    if (!meta) return std::nullopt;
    return read(*meta);
}

std::optional<TaggedObject> FolderBucket::taggedObject(const std::string& key) {
    return readStored(key, [&](const Json& meta) {
        return TaggedObject{readFile(objectPath(key)), meta.at("etag").get<std::string>()};
    });
}

std::optional<std::string> FolderBucket::object(const std::string& key) {
    auto tagged = taggedObject(key);
    if (!tagged) return std::nullopt;
    return std::move(tagged->data);
}

std::optional<std::string> FolderBucket::objectRange(const std::string& key, const ByteRange& range) {
    return readStored(key, [&](const Json&) {
        std::ifstream file(objectPath(key), std::ios::binary);
        std::string bytes(range.length, '\0');
        file.seekg(static_cast<std::streamoff>(range.offset));
        file.read(bytes.data(), static_cast<std::streamsize>(range.length));
        if (!file) throw VorlenError::integrity(key, shortObject);
        return bytes;
    });
}

std::optional<ObjectInfo> FolderBucket::info(const std::string& key) {
    return readStored(key, [](const Json& meta) {
        ObjectInfo info;
        info.size = meta.at("size").get<std::int64_t>();
        info.lastModified = parseIso8601(fieldOr<std::string>(meta, "lastModified", ""));
        info.metadata = fieldOr<std::map<std::string, std::string>>(meta, "metadata", {});
        return info;
    });
}

std::optional<ObjectHeaders> FolderBucket::headers(const std::string& key) {
    return readStored(key, [](const Json& meta) {
        return ObjectHeaders{fieldOr<std::string>(meta, "contentType", ""), fieldOr<std::string>(meta, "cacheControl", ""),
                             fieldOr<std::map<std::string, std::string>>(meta, "metadata", {})};
    });
}

Bucket::ListPage FolderBucket::listPage(const std::string& prefix, const std::optional<std::string>& startAfter,
                                        const std::optional<std::string>& token, int, std::chrono::duration<double>) {
    checkListable(prefix);
    std::optional<std::string> marker = startAfter;
    if (token) {
        marker = base64UrlDecode(*token);
        if (!marker)
            throw VorlenError::status(400, errorBody("InvalidArgument", "The continuation token provided is incorrect"));
    }
    finishLeftovers();
    Lock lock(root_, false);
    auto keys = keysWithPrefix(prefix);
    auto first = marker ? std::upper_bound(keys.begin(), keys.end(), *marker) : keys.begin();
    ListPage page;
    for (auto it = first; it != keys.end() && page.objects.size() < pageSize_; ++it) {
        auto meta = readJson(metaPath(*it));
        page.objects.push_back({*it, meta ? optionalField<std::string>(*meta, "etag") : std::nullopt});
    }
    if (first + static_cast<std::ptrdiff_t>(page.objects.size()) != keys.end())
        page.nextToken = base64Url(page.objects.back().key);
    return page;
}

MultipartUpload FolderBucket::createMultipart(const std::string& key, const ObjectHeaders& headers) {
    checkStorable(key);
    std::string uploadID = randomString(32, idAlphabet);
    fs::path staging = temporaryPath(".upload");
    TemporaryFile guard{staging};
    fs::create_directories(staging);
    Json upload = headersJson(headers);
    upload["key"] = key;
    writeFileAtomically(staging / "upload.json", encodeJson(upload));
    fs::rename(staging, uploadPath(uploadID));
    return {key, uploadID};
}

namespace {

Json openUpload(const fs::path& folder, const MultipartUpload& upload) {
    auto record = readJson(folder / "upload.json");
    if (!record || record->at("key").get<std::string>() != upload.key) throw noSuchUpload();
    return *record;
}

bool isUploadID(const std::string& id) {
    return !id.empty() && id.find_first_not_of(idAlphabet) == std::string::npos;
}

}  // namespace

CompletedPart FolderBucket::uploadPart(const MultipartUpload& upload, std::int64_t number, const RequestBody& body) {
    if (!isUploadID(upload.uploadID)) throw noSuchUpload();
    if (number < 1 || number > 10000)
        throw VorlenError::status(400, errorBody("InvalidArgument", "Part number must be an integer between 1 and 10000"));
    fs::path folder = uploadPath(upload.uploadID);
    openUpload(folder, upload);
    TemporaryFile data{temporaryPath(".part")};
    Written written = writeBody(body, data.path);
    std::error_code error;
    fs::rename(data.path, folder / std::to_string(number), error);
    if (error) throw noSuchUpload();  // aborted meanwhile
    return {number, hex(written.digest)};
}

void FolderBucket::completeMultipart(const MultipartUpload& upload, const std::vector<CompletedPart>& parts) {
    if (!isUploadID(upload.uploadID)) throw noSuchUpload();
    fs::path folder = uploadPath(upload.uploadID);
    Json record = openUpload(folder, upload);
    if (parts.empty())
        throw VorlenError::status(400, errorBody("MalformedXML", "The XML you provided was not well-formed"));
    TemporaryFile data{temporaryPath(".data")};
    std::string digests;
    std::uint64_t size = 0;
    {
        FileHandle out(data.path, O_WRONLY | O_CREAT | O_EXCL);
        std::int64_t previous = 0;
        for (auto& part : parts) {
            if (part.number <= previous)
                throw VorlenError::status(400, errorBody("InvalidPartOrder", "The list of parts was not in ascending order."));
            previous = part.number;
            fs::path partPath = folder / std::to_string(part.number);
            std::error_code error;
            auto partSize = fs::file_size(partPath, error);
            if (error) throw VorlenError::status(400, errorBody("InvalidPart", "One or more of the specified parts could not be found."));
            Md5Stream digest;
            appendRange(out.fd(), data.path, partPath, 0, partSize, digest, nullptr);
            auto partDigest = digest.finish();
            if (hex(partDigest) != unquotedETag(part.etag))
                throw VorlenError::status(400, errorBody("InvalidPart", "One or more of the specified parts could not be found."));
            digests.append(reinterpret_cast<const char*>(partDigest.data()), partDigest.size());
            size += partSize;
        }
        if (::fsync(out.fd()) != 0) throwErrno("cannot flush", data.path);
    }
    Json meta = record;
    meta["etag"] = fmt::format("\"{}-{}\"", hex(md5(digests)), parts.size());
    meta["size"] = size;
    meta["lastModified"] = formatIso8601(wallNow());

    Lock lock(root_, true);
    recover();
    if (!fs::exists(folder / "upload.json")) throw noSuchUpload();
    checkNoClash(root_ / "objects", upload.key);
    commit({{{relativeTo(root_, data.path), relativeTo(root_, objectPath(upload.key))}},
            {{relativeTo(root_, metaPath(upload.key)), encodeJson(meta)}},
            {relativeTo(root_, folder)}});
}

void FolderBucket::abortMultipart(const MultipartUpload& upload) {
    if (!isUploadID(upload.uploadID)) throw noSuchUpload();
    Lock lock(root_, true);
    recover();
    fs::path folder = uploadPath(upload.uploadID);
    openUpload(folder, upload);
    commit({{}, {}, {relativeTo(root_, folder)}});
}

std::vector<MultipartUpload> FolderBucket::openMultipartUploads() const {
    std::vector<MultipartUpload> uploads;
    for (auto& entry : fs::directory_iterator(root_ / ".uploads")) {
        auto record = readJson(entry.path() / "upload.json");
        if (record) uploads.push_back({record->at("key").get<std::string>(), entry.path().filename().string()});
    }
    std::sort(uploads.begin(), uploads.end(), [](auto& a, auto& b) { return a.uploadID < b.uploadID; });
    return uploads;
}

std::vector<MultipartUpload> FolderBucket::listMultipartUploads(const std::string& prefix) {
    finishLeftovers();
    Lock lock(root_, false);
    auto uploads = openMultipartUploads();
    std::erase_if(uploads, [&](const MultipartUpload& upload) { return !upload.key.starts_with(prefix); });
    std::stable_sort(uploads.begin(), uploads.end(), [](auto& a, auto& b) { return a.key < b.key; });
    return uploads;
}

}  // namespace vorlen
