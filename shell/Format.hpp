#pragma once

#include <cstdint>
#include <optional>

#include <QString>

#include "app/LibraryModel.hpp"
#include "app/PublishService.hpp"
#include "core/base/Dates.hpp"

namespace vorlen::shell {

// The window's words for the model's numbers.
namespace format {

// "1:05", "1:02:03"
QString clock(double seconds);
// "0:01.5": a time in a video, to a tenth of a second
QString videoTime(double seconds);
// "820 bytes", "4.2 MB", "1.30 GB" (decimal units, as disks and networks count)
QString bytes(std::uint64_t count);
// "12.4 Mbit/s" from bytes a second
QString rate(double bytesPerSecond);
// "Encoding", "Packaging", "Reviewing the poster", "Uploading"
QString stage(app::JobStage stage);
// "Saving…", "Moving to a new link…": what runs for a video of the library
QString change(app::LibraryModel::Change change);
// "Stereo", "Mono", "6 channels", "No audio"
QString channels(std::optional<std::int64_t> count);
// "English" from "en"; the tag itself when it names no language
QString language(const std::string& tag);
// "15 Jan 2026", on this computer's calendar
QString date(SystemTime time);
// "1 video", "12 videos": a count with its noun, plural for any count but one
QString counted(std::int64_t count, const QString& noun);
// “text” in curly quotes
QString quoted(const QString& text);

// The loudness choices in the order of a menu, and what each means.
inline constexpr AudioLoudness loudnessOrder[] = {AudioLoudness::original, AudioLoudness::web, AudioLoudness::broadcast};
QString loudness(AudioLoudness loudness);

}  // namespace format

}  // namespace vorlen::shell
