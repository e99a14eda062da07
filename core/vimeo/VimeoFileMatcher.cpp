#include "core/vimeo/VimeoFileMatcher.hpp"
