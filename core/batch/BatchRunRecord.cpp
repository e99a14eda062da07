#include "core/batch/BatchRunRecord.hpp"

#include <fmt/format.h>

#include "core/base/Json.hpp"

namespace vorlen {

namespace {

constexpr std::int64_t version = 1;

std::string text(const Json& object, const char* name) {
    const auto found = object.find(name);
    if (found == object.end() || !found->is_string()) throw std::runtime_error(fmt::format("no \u201c{}\u201d", name));
    return found->get<std::string>();
}

}  // namespace

std::string BatchRunRecord::encoded() const {
    return encodeJson(Json{{"version", version},
                           {"id", id},
                           {"kind", rawValue(kind)},
                           {"updated", formatIso8601(updated)},
                           {"computer_name", computerName}},
                      true);
}

BatchRunRecord BatchRunRecord::decoded(std::string_view data) {
    Json object;
    try {
        object = decodeJson(data);
    } catch (const std::exception&) {
    }
    if (object.is_object() && object.contains("version") && object["version"].is_number_integer() &&
        object["version"].get<std::int64_t>() != version)
        throw VorlenError::metadata(
            "A different version of Vorlen has a batch run on this site. Update Vorlen, then start this run again.");
    try {
        if (!object.is_object() || !object.contains("version")) throw std::runtime_error("not a record");
        BatchRunRecord record;
        record.id = text(object, "id");
        const auto kind = text(object, "kind");
        if (kind == rawValue(BatchRunKind::bulkUpload)) record.kind = BatchRunKind::bulkUpload;
        else if (kind == rawValue(BatchRunKind::vimeoSync)) record.kind = BatchRunKind::vimeoSync;
        else throw std::runtime_error(fmt::format("\u201c{}\u201d is not a kind of batch run", kind));
        record.computerName = text(object, "computer_name");
        const auto updated = text(object, "updated");
        const auto parsed = parseIso8601(updated);
        if (!parsed) throw std::runtime_error(fmt::format("\u201c{}\u201d is not an ISO 8601 date", updated));
        record.updated = *parsed;
        return record;
    } catch (const std::runtime_error&) {
        throw VorlenError::metadata(fmt::format("The bucket has a record of a batch run in {} that Vorlen cannot read. "
                                                "Update Vorlen. If this message stays, delete that file.",
                                                key));
    }
}

}  // namespace vorlen
