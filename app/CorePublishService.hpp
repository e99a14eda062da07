#pragma once

#include <filesystem>
#include <memory>

#include "app/LocalSettings.hpp"
#include "app/PublishService.hpp"
#include "core/net/Endpoints.hpp"
#include "core/net/RateLimiter.hpp"
#include "core/publish/Publisher.hpp"
#include "core/publish/VideoEncoder.hpp"
#include "core/storage/S3Bucket.hpp"

namespace vorlen::app {

// What lives as long as a site's services: one limiter for the site, the
// encoder, and the folder of the work directories.
struct CorePipeline {
    std::shared_ptr<RateLimiter> limiter = std::make_shared<RateLimiter>();
    std::shared_ptr<const VideoEncoder> encoder;
    std::filesystem::path workRoot = defaultWorkRoot();
    Endpoints endpoints;
};

// The publish service over the core's Publisher.
class CorePublishService final : public PublishService {
public:
    explicit CorePublishService(CorePipeline pipeline) : pipeline_(std::move(pipeline)) {}

    VideoInspection inspect(const fs::path& file) override;
    VideoSubtitle readSubtitle(const fs::path& file) override;
    ResolvedFolder resolveFolder(const std::string& name, const BucketAccess& access) override;
    PublishedVideo publish(const PublishRequest& request, const std::function<void(const PublishEvent&)>& onEvent) override;
    VideoReplacement replace(const ReplaceRequest& request, const std::function<void(const JobProgress&)>& onProgress) override;

    // The bucket of a site: its folder for a local site, else R2 (or the S3 service it names).
    static std::shared_ptr<Bucket> bucketFor(const BucketAccess& access, const Endpoints& endpoints);
    // The same for a site of this computer, with the credentials that it keeps for the site.
    static std::shared_ptr<Bucket> bucketOf(const LocalSite& site, std::shared_ptr<SecretStore> secrets, const Endpoints& endpoints);
    // The bucket with the folder of the site's videos.
    static Destination destinationFor(const BucketAccess& access, const Endpoints& endpoints);
    // The key prefix of the video folders: empty, or the site's path and "/".
    static std::string videoPrefix(const SiteSummary& site) { return site.folderPath.empty() ? "" : site.folderPath + "/"; }
    // Which bucket a site's is, for what this computer keeps of it: a local site's is its folder.
    static BucketLocation locationOf(const SiteSummary& site);

    // The site's publisher with the uploads tuned as this computer's settings say.
    Publisher publisher(const BucketAccess& access, const UploadTuning& tuning, std::optional<double> expectedUploadRate) const;

private:

    CorePipeline pipeline_;
};

}  // namespace vorlen::app
