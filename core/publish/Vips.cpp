#include "core/publish/Vips.hpp"

#include <mutex>
#include <stdexcept>

namespace vorlen {

void startVips() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (VIPS_INIT("vorlen") != 0) throw std::runtime_error("libvips could not start");
        // Posters are made once each: caching their operations only holds memory.
        vips_cache_set_max(0);
    });
}

}  // namespace vorlen
