#pragma once

#include <vips/vips8>

namespace vorlen {

// Starts libvips once for the process; every user of vips calls this first.
void startVips();

}  // namespace vorlen
