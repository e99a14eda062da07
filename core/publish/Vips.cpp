#include "core/publish/Vips.hpp"

#include <mutex>
#include <stdexcept>

#include "core/publish/ToolRunner.hpp"

namespace vorlen {

void startVips() {
    static std::once_flag once;
    std::call_once(once, [] {
        std::unique_lock environment(environmentLock());
        if (VIPS_INIT("vorlen") != 0) throw std::runtime_error("libvips could not start");
        // Posters are made once each: caching their operations only holds memory.
        vips_cache_set_max(0);
    });
}

}  // namespace vorlen
