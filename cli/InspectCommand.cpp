#include <iostream>

#include <fmt/format.h>

#include "cli/Commands.hpp"
#include "core/base/Json.hpp"
#include "core/publish/Inspection.hpp"
#include "core/publish/SoftwareEncoder.hpp"

namespace vorlen::cli {

namespace {

std::string codecName(VideoCodec codec) { return codec == VideoCodec::hevc ? "HEVC" : "H.264"; }

std::string audioCodecName(const std::string& codec) { return codec == "eac3" ? "E-AC-3" : codec == "aac" ? "AAC" : codec; }

std::string sizeText(std::uint64_t bytes) {
    if (bytes >= 1'000'000'000) return fmt::format("{:.2f} GB", static_cast<double>(bytes) / 1e9);
    return fmt::format("{:.1f} MB", static_cast<double>(bytes) / 1e6);
}

Json inspectionJson(const Inspection& inspection) {
    const auto& info = inspection.info;
    Json rungs = Json::array();
    for (const auto& rung : inspection.ladder) rungs.push_back(rung.id);
    Json audio = Json::array();
    for (const auto& rendition : inspection.audio) audio.push_back(rendition.name);
    return Json{{"width", info.width},
                {"height", info.height},
                {"fps", info.fps},
                {"duration", info.durationSeconds},
                {"hdr", info.hdr ? Json(rawValue(*info.hdr)) : Json(nullptr)},
                {"audio_channels", info.audio ? Json(info.audio->channels) : Json(nullptr)},
                {"rungs", rungs},
                {"audio_renditions", audio},
                {"estimated_bytes", inspection.estimatedBytes},
                {"suggested_name", inspection.suggestedName},
                {"suggested_title", inspection.suggestedTitle}};
}

void printForAPerson(const Inspection& inspection, const VideoEncoder& encoder) {
    const auto& info = inspection.info;
    std::cout << fmt::format("Picture:          {} × {} at {:.5g} fps\n", info.width, info.height, info.fps);
    std::cout << fmt::format("HDR:              {}\n", info.hdr ? (info.hdr == HDRTransfer::pq ? "PQ (HDR10)" : "HLG") : "no");
    std::cout << fmt::format("Duration:         {:.3f} s\n", info.durationSeconds);
    if (info.audio)
        std::cout << fmt::format("Audio:            {} channel{} (stream {})\n", info.audio->channels,
                                 info.audio->channels == 1 ? "" : "s", info.audio->index);
    else
        std::cout << "Audio:            none\n";
    std::cout << "Ladder:\n";
    for (const auto& rung : inspection.ladder)
        std::cout << fmt::format("  {:<9} {:<5} {:>4}p  {} kbps (at most {} kbps)\n", rung.id, codecName(rung.codec),
                                 rung.height, encoder.targetBitrateKbps(rung), rung.maxrateKbps);
    std::cout << "Audio renditions:" << (inspection.audio.empty() ? " none\n" : "\n");
    for (const auto& rendition : inspection.audio)
        std::cout << fmt::format("  {:<9} {} {}, {} kbps\n", rendition.name, audioCodecName(rendition.codec),
                                 rendition.layout, rendition.bitrateKbps);
    std::cout << fmt::format("Estimated size:   {}\n", sizeText(inspection.estimatedBytes));
    std::cout << fmt::format("Suggested name:   {}\n", inspection.suggestedName);
    std::cout << fmt::format("Suggested title:  {}\n", inspection.suggestedTitle);
}

}  // namespace

void registerInspectCommand(CommandRegistry& registry) {
    struct Options {
        std::string file;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* command = registry.app.add_subcommand("inspect", "Show what a video file would become: its ladder, audio and size.");
    command->add_option("FILE", options->file, "the video file")->required();
    command->add_flag("--json", options->json, "print the inspection as JSON");
    registry.add(command, [options] {
        SoftwareEncoder encoder;
        auto inspection = inspect(Tools::locate(), encoder, options->file);
        if (options->json)
            std::cout << encodeJson(inspectionJson(inspection), true) << '\n';
        else
            printForAPerson(inspection, encoder);
        return 0;
    });
}

}  // namespace vorlen::cli
