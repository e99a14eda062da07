#include "core/site/SiteViewers.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

#include "core/base/Crypto.hpp"
#include "core/base/Random.hpp"
#include "core/base/Task.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"
#include "core/site/SiteSettings.hpp"

namespace vorlen {

namespace {

constexpr std::size_t readsAtOnce = 8;

const ObjectHeaders& viewerHeaders() {
    static const ObjectHeaders headers{"application/json", "no-cache", {}};
    return headers;
}

std::string trimmedName(const std::string& name) {
    auto result = trimmed(name);
    if (result.empty()) throw VorlenError::config("A viewer needs a name.");
    return result;
}

}  // namespace

std::string SiteViewers::keyOf(const ViewerID& id) { return std::string(SiteRules::viewersFolder) + id.text + ".json"; }

StoredViewer SiteViewers::readFile(const ViewerID& id, const TaggedObject& object) const {
    StoredViewer stored{id, object.etag, std::nullopt, std::nullopt, Viewer::isNewer(object.data)};
    try {
        stored.viewer = Viewer::decoded(object.data);
    } catch (const VorlenError& error) {
        stored.problem = error.text();
    }
    return stored;
}

std::vector<StoredViewer> SiteViewers::list() const {
    std::vector<ViewerID> ids;
    const std::string folder = SiteRules::viewersFolder;
    for (const auto& key : bucket_->listKeys(folder)) {
        if (!key.ends_with(".json")) continue;
        const auto text = key.substr(folder.size(), key.size() - folder.size() - 5);
        try {
            ids.push_back(ViewerID::parse(text));
        } catch (const VorlenError&) {
            // Not a file that this system wrote; it names no viewer.
        }
    }
    std::vector<std::optional<StoredViewer>> read(ids.size());
    forEachInWindow(ids.size(), readsAtOnce, [&](std::size_t index) {
        // A viewer deleted since the listing is no longer listed.
        if (const auto object = bucket_->taggedObject(keyOf(ids[index]))) read[index] = readFile(ids[index], *object);
    });
    std::vector<StoredViewer> viewers;
    for (auto& stored : read)
        if (stored) viewers.push_back(std::move(*stored));
    std::sort(viewers.begin(), viewers.end(), [](const StoredViewer& a, const StoredViewer& b) {
        const auto nameOf = [](const StoredViewer& stored) {
            return stored.viewer ? foldedForComparison(stored.viewer->name) : std::string();
        };
        return std::pair(nameOf(a), a.id) < std::pair(nameOf(b), b.id);
    });
    return viewers;
}

StoredViewer SiteViewers::read(const ViewerID& id) const {
    const auto object = bucket_->taggedObject(keyOf(id));
    if (!object) throw VorlenError::config(fmt::format("The site has no viewer {}.", id.text));
    return readFile(id, *object);
}

std::pair<ViewerInvite, std::string> SiteViewers::newInvite() const {
    std::string bytes(32, '\0');
    secureRandomBytes(bytes.data(), bytes.size());
    const auto secret = base64Url(bytes);
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    return {ViewerInvite{sha256Hex(secret), now + std::chrono::seconds(inviteLifetimeSeconds)}, secret};
}

StoredViewer SiteViewers::write(const ViewerID& id, const Viewer& viewer, const WriteCondition& condition) const {
    const auto key = keyOf(id);
    auto etag = bucket_->put(key, RequestBody::bytes(viewer.encoded()), viewerHeaders(), condition);
    if (!etag) etag = bucket_->taggedObject(key).value_or(TaggedObject{}).etag;
    return StoredViewer{id, etag.value_or(""), viewer, std::nullopt, false};
}

const Viewer& SiteViewers::changeable(const StoredViewer& stored) const {
    if (stored.isNewer) throw VorlenError::config(newerVersion);
    if (!stored.viewer) throw VorlenError::metadata(stored.problem.value_or("The viewer file cannot be read."));
    return *stored.viewer;
}

ViewerInvitation SiteViewers::add(const std::string& name) const {
    const auto trimmed = trimmedName(name);
    const auto id = ViewerID::make();
    auto [invite, secret] = newInvite();
    const Viewer viewer{trimmed, std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()), invite};
    return {write(id, viewer, WriteCondition::absent()), fmt::format("{}/_invite/{}.{}", pageOrigin_, id.text, secret)};
}

ViewerInvitation SiteViewers::renewInvite(const StoredViewer& stored) const {
    auto viewer = changeable(stored);
    auto [invite, secret] = newInvite();
    viewer.access = invite;
    return {write(stored.id, viewer, WriteCondition::unchanged(stored.etag)),
            fmt::format("{}/_invite/{}.{}", pageOrigin_, stored.id.text, secret)};
}

StoredViewer SiteViewers::rename(const StoredViewer& stored, const std::string& name) const {
    const auto trimmed = trimmedName(name);
    auto viewer = changeable(stored);
    if (viewer.name == trimmed) return stored;
    viewer.name = trimmed;
    return write(stored.id, viewer, WriteCondition::unchanged(stored.etag));
}

void SiteViewers::remove(const ViewerID& id) const { bucket_->remove(keyOf(id)); }

bool SiteViewers::isPrivate() const { return SiteSettings::readRequired(*bucket_).isPrivate; }

void SiteViewers::setPrivate(bool isPrivate) const {
    auto settings = SiteSettings::readRequired(*bucket_);
    if (settings.isPrivate == isPrivate) return;
    settings.isPrivate = isPrivate;
    settings.write(*bucket_);
}

}  // namespace vorlen
