#include "core/storage/S3Bucket.hpp"

#include <pugixml.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <sstream>
#include <fmt/format.h>

#include "core/base/Crypto.hpp"
#include "core/base/Dates.hpp"
#include "core/base/Task.hpp"
#include "core/base/Text.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/net/StatusFailure.hpp"
#include "core/storage/WriteFailure.hpp"

namespace vorlen {

namespace {

constexpr std::size_t deleteBatchSize = 1000;
constexpr std::size_t pieceSize = 262144;

// The MD5 of a body, a file range read in the same pieces as the send.
std::string contentMd5(const RequestBody& body) {
    if (auto* data = std::get_if<std::string>(&body.content)) return base64(md5(*data));
    const auto& file = std::get<RequestBody::FileRange>(body.content);
    std::FILE* handle = std::fopen(file.path.c_str(), "rb");
    if (!handle) throw std::runtime_error(fmt::format("The file “{}” could not be opened.", file.path.filename().string()));
    struct Close {
        std::FILE* handle;
        ~Close() { std::fclose(handle); }
    } close{handle};
    if (::fseeko(handle, static_cast<off_t>(file.range.offset), SEEK_SET) != 0)
        throw std::runtime_error("The file is shorter than planned.");
    Md5Stream digest;
    std::string piece(pieceSize, '\0');
    for (std::uint64_t left = file.range.length; left > 0;) {
        checkCancellation();
        const std::size_t got = std::fread(piece.data(), 1, std::min<std::uint64_t>(left, pieceSize), handle);
        if (got == 0) throw std::runtime_error("The file is shorter than planned.");
        digest.update(std::string_view(piece.data(), got));
        left -= got;
    }
    return base64(digest.finish());
}

std::string_view localName(const char* name) {
    std::string_view text(name);
    const auto colon = text.rfind(':');
    return colon == std::string_view::npos ? text : text.substr(colon + 1);
}

// Elements are matched by local name, so that namespaces play no part.
bool isElementNamed(const pugi::xml_node& node, std::string_view name) {
    return node.type() == pugi::node_element && localName(node.name()) == name;
}

std::vector<pugi::xml_node> childrenNamed(const pugi::xml_node& node, std::string_view name) {
    std::vector<pugi::xml_node> found;
    for (auto child : node.children())
        if (isElementNamed(child, name)) found.push_back(child);
    return found;
}

pugi::xml_node firstChild(const pugi::xml_node& node, std::string_view name) {
    return node.find_child([&](const pugi::xml_node& child) { return isElementNamed(child, name); });
}

// The root element of a whole answer; pugixml never loads a DTD or an external entity.
pugi::xml_node parsedElement(pugi::xml_document& document, const std::string& body) {
    const auto result = document.load_buffer(body.data(), body.size(), pugi::parse_default);
    if (!result) throw VorlenError::status(200, std::string("response is not XML: ") + result.description());
    return document.document_element();
}

pugi::xml_node parsedRoot(pugi::xml_document& document, const std::string& body, std::string_view expectedRoot) {
    auto root = parsedElement(document, body);
    if (!isElementNamed(root, expectedRoot)) throw VorlenError::status(200, body);
    return root;
}

// The text of one child of the answer's root, when the root is the expected one.
std::optional<std::string> rootValue(const std::string& body, std::string_view root, std::string_view name) {
    pugi::xml_document document;
    const auto element = parsedElement(document, body);
    const auto child = isElementNamed(element, root) ? firstChild(element, name) : pugi::xml_node();
    if (!child) return std::nullopt;
    return std::string(child.child_value());
}

// A request body: no white space between elements, and the declaration only where the document has one.
RequestBody xmlBody(const pugi::xml_document& document) {
    std::ostringstream text;
    document.save(text, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
    return RequestBody::bytes(text.str());
}

void addObjectHeaders(std::map<std::string, std::string>& headers, const ObjectHeaders& objectHeaders) {
    if (!objectHeaders.contentType.empty()) headers["content-type"] = objectHeaders.contentType;
    if (!objectHeaders.cacheControl.empty()) headers["cache-control"] = objectHeaders.cacheControl;
    for (const auto& [name, value] : objectHeaders.metadata) headers["x-amz-meta-" + asciiLowercased(name)] = value;
}

// A copy and a completion can fail with status 200: the answer is then an Error document.
void failOnErrorInside(const HttpResponse& response) {
    pugi::xml_document document;
    if (isElementNamed(parsedElement(document, response.body), "Error"))
        throw VorlenError::status(200, repairUtf8(response.body));
}


template <class F>
auto asWrite(const std::string& key, bool hadCondition, F&& write) -> decltype(write()) {
    try {
        return write();
    } catch (const VorlenError&) {
        std::rethrow_exception(mappedWriteFailure(std::current_exception(), key, hadCondition));
    }
}

}  // namespace

S3Bucket::S3Bucket(BucketLocation location, S3Credentials credentials, Endpoints endpoints, int maxConnectionsPerHost,
                   std::chrono::seconds noProgressTimeout)
    : location_(std::move(location)),
      credentials_(std::move(credentials)),
      endpoints_(std::move(endpoints)),
      session_([&] {
          auto options = endpoints_.httpOptions();
          options.maxConnectionsPerHost = maxConnectionsPerHost;
          options.noProgressTimeout = noProgressTimeout;
          return std::make_shared<HttpClient>(std::move(options));
      }()) {}

std::optional<HttpResponse> S3Bucket::send(const Call& call) {
    std::string base = endpoints_.r2Storage;
    if (auto slot = base.find("{account}"); slot != std::string::npos)
        base.replace(slot, std::string_view("{account}").size(), location_.accountID);
    std::string path = "/" + SigV4::uriEncode(location_.bucket, false);
    if (call.key) path += "/" + SigV4::uriEncode(*call.key, true);
    const std::string query = SigV4::canonicalQuery(call.query);
    const std::string url = base + path + (query.empty() ? "" : "?" + query);
    const auto host = hostOfURL(url);
    if (!host) throw VorlenError::config(fmt::format("\u201c{}\u201d is not a valid account ID", location_.accountID));

    SigV4::Request signing{call.method, path, call.query, call.headers, "UNSIGNED-PAYLOAD"};
    if (call.body) {
        signing.headers["content-length"] = std::to_string(call.body->size());
        if (call.digest) signing.headers["content-md5"] = contentMd5(*call.body);
    }
    signing.headers["host"] = *host;
    signing.headers["x-amz-date"] =
        formatIso8601Basic(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
    signing.headers["x-amz-content-sha256"] = "UNSIGNED-PAYLOAD";

    HttpRequest request;
    request.method = call.method;
    request.url = url;
    request.headers.emplace_back("authorization", SigV4::authorization(signing, credentials_, SigV4::Scope{}));
    for (const auto& [name, value] : signing.headers)
        if (name != "host") request.headers.emplace_back(name, value);
    if (call.body) request.body = *call.body;
    request.idempotent = call.idempotent;

    HttpResponse response = session_->send(request);
    if (response.status == 404 && call.absentOn404) return std::nullopt;
    if (response.status < 200 || response.status > 299) {
        std::optional<std::chrono::duration<double>> retryAfter;
        if (auto value = response.header("retry-after"))
            retryAfter = parseRetryAfter(*value, std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
        throw StatusFailure(response.status, repairUtf8(response.body), retryAfter);
    }
    return response;
}

bool S3Bucket::hasObjects(const std::string& prefix) {
    auto response = send({"GET", std::nullopt, {{"list-type", "2"}, {"max-keys", "1"}, {"prefix", prefix}}, {}});
    const auto text = rootValue(response->body, "ListBucketResult", "KeyCount");
    std::int64_t count = 0;
    if (!text || text->empty() ||
        std::from_chars(text->data(), text->data() + text->size(), count).ptr != text->data() + text->size())
        throw VorlenError::status(200, "list response has no KeyCount");
    return count != 0;
}

std::optional<std::string> S3Bucket::object(const std::string& key) {
    Call call{"GET", key, {}, {}};
    call.absentOn404 = true;
    auto response = send(call);
    if (!response) return std::nullopt;
    return std::move(response->body);
}

std::optional<TaggedObject> S3Bucket::taggedObject(const std::string& key) {
    Call call{"GET", key, {}, {{"accept-encoding", "identity"}}};
    call.absentOn404 = true;
    auto response = send(call);
    if (!response) return std::nullopt;
    auto etag = response->header("etag");
    if (!etag) throw VorlenError::status(200, fmt::format("the response for {} has no ETag", key));
    return TaggedObject{std::move(response->body), *etag};
}

std::optional<std::string> S3Bucket::objectRange(const std::string& key, const ByteRange& range) {
    if (range.length == 0) return info(key) ? std::optional<std::string>("") : std::nullopt;
    Call call{"GET", key, {}, {{"accept-encoding", "identity"},
                               {"range", fmt::format("bytes={}-{}", range.offset, range.offset + range.length - 1)}}};
    call.absentOn404 = true;
    auto response = send(call);
    if (!response) return std::nullopt;
    // A server that ignores Range answers 200 with the whole object.
    if (response->status == 200 && response->body.size() >= range.offset + range.length)
        return response->body.substr(range.offset, range.length);
    if (response->body.size() != range.length) throw VorlenError::integrity(key, shortObject);
    return std::move(response->body);
}

std::optional<ObjectInfo> S3Bucket::info(const std::string& key) {
    Call call{"HEAD", key, {}, {}};
    call.absentOn404 = true;
    auto response = send(call);
    if (!response) return std::nullopt;
    ObjectInfo info;
    if (auto length = response->header("content-length")) {
        std::int64_t size = 0;
        if (std::from_chars(length->data(), length->data() + length->size(), size).ptr == length->data() + length->size())
            info.size = size;
    }
    if (auto modified = response->header("last-modified")) info.lastModified = parseHttpDate(*modified);
    for (const auto& [name, value] : response->headers)
        if (name.starts_with("x-amz-meta-")) info.metadata[name.substr(std::string_view("x-amz-meta-").size())] = value;
    return info;
}

std::optional<std::string> S3Bucket::put(const std::string& key, const RequestBody& body, const ObjectHeaders& headers,
                                         const std::optional<WriteCondition>& condition) {
    Call call{"PUT", key, {}, {}};
    addObjectHeaders(call.headers, headers);
    if (condition) {
        if (auto* unchanged = std::get_if<WriteCondition::Unchanged>(&condition->value)) {
            call.headers["if-match"] = unchanged->etag;
        } else {
            call.headers["if-none-match"] = "*";
        }
        // Sent twice, a conditional write would lose to itself.
        call.idempotent = false;
    }
    call.body = &body;
    call.digest = true;
    return asWrite(key, condition.has_value(), [&] { return send(call)->header("etag"); });
}

void S3Bucket::remove(const std::string& key) { send({"DELETE", key, {}, {}}); }

std::vector<DeleteFailure> S3Bucket::deleteObjects(const std::vector<std::string>& keys) {
    std::vector<DeleteFailure> failures;
    for (std::size_t start = 0; start < keys.size(); start += deleteBatchSize) {
        pugi::xml_document request;
        auto declaration = request.append_child(pugi::node_declaration);
        declaration.append_attribute("version") = "1.0";
        declaration.append_attribute("encoding") = "UTF-8";
        auto batch = request.append_child("Delete");
        batch.append_child("Quiet").text() = "true";
        for (std::size_t index = start; index < std::min(keys.size(), start + deleteBatchSize); ++index)
            batch.append_child("Object").append_child("Key").text() = keys[index].c_str();
        const RequestBody body = xmlBody(request);
        Call call{"POST", std::nullopt, {{"delete", std::nullopt}}, {{"content-type", "application/xml"}}};
        call.body = &body;
        call.digest = true;
        auto response = send(call);
        pugi::xml_document document;
        auto root = parsedRoot(document, response->body, "DeleteResult");
        for (auto error : childrenNamed(root, "Error"))
            failures.push_back({firstChild(error, "Key").child_value(), firstChild(error, "Code").child_value(),
                                firstChild(error, "Message").child_value()});
    }
    return failures;
}

void S3Bucket::copy(const std::string& from, const std::string& to) {
    const RequestBody empty = RequestBody::bytes("");
    Call call{"PUT", to, {},
              {{"x-amz-copy-source", SigV4::uriEncode(location_.bucket, false) + "/" + SigV4::uriEncode(from, true)}}};
    call.body = &empty;
    failOnErrorInside(*send(call));
}

Bucket::ListPage S3Bucket::readListPage(const std::string& prefix, const std::optional<std::string>& startAfter,
                                        const std::optional<std::string>& token) {
    QueryItems query{{"list-type", "2"}, {"prefix", prefix}};
    if (token) {
        query.emplace_back("continuation-token", *token);
    } else if (startAfter) {
        query.emplace_back("start-after", *startAfter);
    }
    auto response = send({"GET", std::nullopt, query, {}});
    pugi::xml_document document;
    auto root = parsedRoot(document, response->body, "ListBucketResult");
    ListPage page;
    for (auto contents : childrenNamed(root, "Contents")) {
        auto key = firstChild(contents, "Key");
        if (!key) continue;
        ListedObject object{key.child_value(), std::nullopt};
        if (auto etag = firstChild(contents, "ETag")) object.etag = etag.child_value();
        page.objects.push_back(std::move(object));
    }
    if (std::string_view(firstChild(root, "IsTruncated").child_value()) == "true") {
        std::string next = firstChild(root, "NextContinuationToken").child_value();
        if (next.empty()) throw VorlenError::status(200, "truncated list response has no NextContinuationToken");
        page.nextToken = std::move(next);
    }
    return page;
}

Bucket::ListPage S3Bucket::listPage(const std::string& prefix, const std::optional<std::string>& startAfter,
                                    const std::optional<std::string>& token, int retries,
                                    std::chrono::duration<double> delay) {
    return RetryPolicy{retries, delay}.run([&](std::int64_t) {
        auto page = readListPage(prefix, startAfter, token);
        if (token && page.nextToken == token) throw VorlenError::status(200, "list response repeats its continuation token");
        return page;
    });
}

MultipartUpload S3Bucket::createMultipart(const std::string& key, const ObjectHeaders& headers) {
    Call call{"POST", key, {{"uploads", std::nullopt}}, {}};
    addObjectHeaders(call.headers, headers);
    // Each start opens another upload: one whose answer was lost is the caller's to look for.
    call.idempotent = false;
    auto response = send(call);
    auto uploadID = rootValue(response->body, "InitiateMultipartUploadResult", "UploadId");
    if (!uploadID || uploadID->empty()) throw VorlenError::status(200, "multipart response has no UploadId");
    return {key, *uploadID};
}

CompletedPart S3Bucket::uploadPart(const MultipartUpload& upload, std::int64_t number, const RequestBody& body) {
    Call call{"PUT", upload.key, {{"partNumber", std::to_string(number)}, {"uploadId", upload.uploadID}}, {}};
    call.body = &body;
    call.digest = true;
    return asWrite(upload.key, false, [&] {
        auto etag = send(call)->header("etag");
        if (!etag) throw VorlenError::status(200, "part response has no ETag");
        return CompletedPart{number, unquotedETag(*etag)};
    });
}

void S3Bucket::completeMultipart(const MultipartUpload& upload, const std::vector<CompletedPart>& parts) {
    pugi::xml_document request;
    auto complete = request.append_child("CompleteMultipartUpload");
    for (const auto& part : parts) {
        auto element = complete.append_child("Part");
        element.append_child("PartNumber").text() = static_cast<long long>(part.number);
        // The quotes go back around the ETag.
        element.append_child("ETag").text() = ("\"" + part.etag + "\"").c_str();
    }
    const RequestBody body = xmlBody(request);
    Call call{"POST", upload.key, {{"uploadId", upload.uploadID}}, {{"content-type", "application/xml"}}};
    call.body = &body;
    // Sent again by the transport, a completion that worked would meet NoSuchUpload on its
    // first attempt, where the uploader cannot yet ask whether the object stands.
    call.idempotent = false;
    failOnErrorInside(*send(call));
}

std::vector<MultipartUpload> S3Bucket::listMultipartUploads(const std::string& prefix) {
    std::vector<MultipartUpload> uploads;
    std::optional<std::pair<std::string, std::string>> marker;  // the key and upload ID to go on behind
    for (;;) {
        QueryItems query{{"uploads", std::nullopt}, {"prefix", prefix}};
        if (marker) {
            query.emplace_back("key-marker", marker->first);
            if (!marker->second.empty()) query.emplace_back("upload-id-marker", marker->second);
        }
        auto response = send({"GET", std::nullopt, query, {}});
        pugi::xml_document document;
        auto root = parsedRoot(document, response->body, "ListMultipartUploadsResult");
        for (auto upload : childrenNamed(root, "Upload")) {
            auto key = firstChild(upload, "Key");
            auto uploadID = firstChild(upload, "UploadId");
            if (key && uploadID) uploads.push_back({key.child_value(), uploadID.child_value()});
        }
        if (std::string_view(firstChild(root, "IsTruncated").child_value()) != "true") return uploads;
        std::pair<std::string, std::string> next{firstChild(root, "NextKeyMarker").child_value(),
                                                 firstChild(root, "NextUploadIdMarker").child_value()};
        // The guard against a listing that would otherwise never end.
        if (next.first.empty() || next == marker)
            throw VorlenError::status(200, "truncated upload list has no new NextKeyMarker");
        marker = std::move(next);
    }
}

void S3Bucket::abortMultipart(const MultipartUpload& upload) {
    send({"DELETE", upload.key, {{"uploadId", upload.uploadID}}, {}});
}

}  // namespace vorlen
