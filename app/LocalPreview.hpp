#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/LocalSettings.hpp"

namespace vorlen::app {

// A local site served on this computer: the page Worker's local runner (node)
// over the site's folder, pages on localhost and media on media.localhost, on
// one loopback port.
struct LocalPreview {
    struct Serving {
        std::string pageOrigin;   // http://localhost:PORT
        std::string mediaOrigin;  // http://media.localhost:PORT
        std::vector<std::string> pages;  // the page of each video in the folder
    };

    // Serves until the calling task is cancelled. onServing hears once where the
    // site is; onMessage gets every other line the runner writes.
    static void run(const LocalSite& site, int port, const std::function<void(const Serving&)>& onServing,
                    const std::function<void(const std::string&)>& onMessage);
};

}  // namespace vorlen::app
