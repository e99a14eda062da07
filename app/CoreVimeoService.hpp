#pragma once

#include <memory>

#include "app/CorePublishService.hpp"
#include "app/SecretStore.hpp"
#include "app/VimeoService.hpp"
#include "core/library/LibraryCache.hpp"

namespace vorlen::app {

// Vimeo imports over the core's client and sync, with the site's pipeline,
// library cache, token item and local folder.
class CoreVimeoService final : public VimeoService {
public:
    CoreVimeoService(CorePipeline pipeline, std::shared_ptr<LibraryCache> cache, std::shared_ptr<SecretStore> secrets,
                     SecretItem tokenItem, std::filesystem::path siteFolder);

    bool hasToken() override { return token().has_value(); }
    void saveToken(const std::string& token) override;
    void forgetToken() override;
    std::optional<VimeoStoredList> storedList() override;
    VimeoStoredList readList(const std::function<void(const VimeoReadProgress&)>& onProgress) override;
    VimeoSyncPlan plan(const BucketAccess& access, const VimeoStoredList& list) override;
    std::vector<VimeoLocalFile> scanFiles(const std::vector<std::filesystem::path>& folders,
                                          const std::function<void(const VimeoScanProgress&)>& onProgress) override;
    VimeoLocalFile localFile(const std::filesystem::path& file) override;
    VimeoSyncResult sync(const VimeoSyncRequest& request,
                         const std::function<void(const VimeoSyncProgress&)>& onProgress) override;

private:
    std::optional<std::string> token();
    std::shared_ptr<VimeoAPI> api();

    CorePublishService publish_;
    CorePipeline pipeline_;
    std::shared_ptr<LibraryCache> cache_;
    std::shared_ptr<SecretStore> secrets_;
    SecretItem tokenItem_;
    VimeoVideoListStore listStore_;
};

}  // namespace vorlen::app
