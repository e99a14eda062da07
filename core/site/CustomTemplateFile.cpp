#include "core/site/CustomTemplateFile.hpp"

#include "core/base/Text.hpp"
#include "core/site/PageTemplate.hpp"
#include "core/site/SiteSettings.hpp"

namespace vorlen {

namespace {

// User metadata travels in an HTTP header, so the name goes percent-encoded over the unreserved alphabet.
const char* const sourceNameKey = "source-name";

}  // namespace

std::optional<CustomTemplateFile::Contents> CustomTemplateFile::find(Bucket& bucket) {
    auto info = bucket.info(SiteRules::templateKey);
    auto bytes = info ? bucket.object(SiteRules::templateKey) : std::nullopt;
    if (!bytes) return std::nullopt;
    CustomTemplateFile file{static_cast<std::int64_t>(bytes->size()), info->lastModified, std::nullopt};
    if (auto name = info->metadata.find(sourceNameKey); name != info->metadata.end()) file.sourceName = percentDecoded(name->second);
    return Contents{std::move(*bytes), std::move(file)};
}

bool CustomTemplateFile::exists(Bucket& bucket) { return bucket.info(SiteRules::templateKey).has_value(); }

void CustomTemplateFile::write(Bucket& bucket, const PageTemplate& page, const std::optional<std::string>& sourceName) {
    ObjectHeaders headers{"text/html; charset=utf-8", "no-cache", {}};
    if (sourceName) headers.metadata[sourceNameKey] = percentEncoded(*sourceName);
    bucket.put(SiteRules::templateKey, RequestBody::bytes(page.text), headers);
}

}  // namespace vorlen
