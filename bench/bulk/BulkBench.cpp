// How well a bulk run hides its uploads behind its builds. Six short 1080p clips
// go to the real S3 server through the bulk runner, with the upload rate set so
// that uploading one clip takes about as long as building it. Prints
//   wall_s=… build_s=… upload_s=… overlap_ratio=…
// where the ratio is the sum of the build and upload seconds over the wall
// seconds: 1 when the stages take turns, 2 when they overlap fully.
//   bench_bulk [--clips N] [--seconds S]
#include <iostream>
#include <map>
#include <mutex>

#include <fmt/format.h>

#include "core/base/Clock.hpp"
#include "core/base/Files.hpp"
#include "core/batch/BulkRunner.hpp"
#include "core/publish/SoftwareEncoder.hpp"
#include "testing/MediaClip.hpp"
#include "testing/RgwServer.hpp"

namespace {

using namespace vorlen;
namespace fs = std::filesystem;

// When each item entered and left its build and its upload.
class StageClock {
public:
    void operator()(const BulkProgress& progress) {
        std::lock_guard lock(mutex_);
        const auto now = BootClock::now();
        std::set<std::int64_t> active;
        for (const auto& item : progress.snapshot.activeItems) {
            active.insert(item.item);
            auto& times = items_[item.item];
            if (item.phase == BatchPhase::building && !times.buildStart) times.buildStart = now;
            if (item.phase != BatchPhase::building && times.buildStart && !times.buildEnd) times.buildEnd = now;
            if (item.phase == BatchPhase::uploading && !times.uploadStart) times.uploadStart = now;
        }
        for (auto& [item, times] : items_)
            if (times.uploadStart && !times.uploadEnd && !active.contains(item)) times.uploadEnd = now;
    }

    std::pair<double, double> seconds() const {
        double build = 0, upload = 0;
        for (const auto& [item, times] : items_) {
            if (times.buildStart && times.buildEnd) build += std::chrono::duration<double>(*times.buildEnd - *times.buildStart).count();
            if (times.uploadStart && times.uploadEnd)
                upload += std::chrono::duration<double>(*times.uploadEnd - *times.uploadStart).count();
        }
        return {build, upload};
    }

private:
    struct Times {
        std::optional<BootClock::time_point> buildStart, buildEnd, uploadStart, uploadEnd;
    };
    std::mutex mutex_;
    std::map<std::int64_t, Times> items_;
};

int run(int clipCount, double seconds) {
    testing::ClipFolder clips;
    std::string rows;
    for (int clip = 0; clip < clipCount; ++clip) {
        const auto name = fmt::format("clip-{}.mp4", clip);
        clips.make(name, testing::lavfiVideo(1920, 1080, seconds) + " " + testing::lavfiTone(seconds) +
                             fmt::format(" -vf hue=H={}*t -c:v libx264 -preset veryfast -c:a aac -shortest", clip + 1));
        rows += fmt::format("{},Clip {},B-{}\n", name, clip, clip);
    }
    const auto input = clips.path() / "clips.csv";
    writeFileAtomically(input, "File,Title,Reference\n" + rows);

    auto& server = testing::RgwServer::shared();
    const auto bucket = server.makeBucket();
    BulkRunner runner;
    runner.publisher.tools = Tools::locate();
    runner.publisher.encoder = std::make_shared<SoftwareEncoder>(EncodingSpeed::fast);
    runner.publisher.workRoot = clips.path() / "work";
    runner.publisher.destination = Destination{bucket, "videos/", bucket->location().bucket};
    runner.library = Library{runner.publisher.destination, bucket->location(), runner.publisher.upload, nullptr};
    runner.pageBase = "https://videos.example.com/";
    runner.computerName = "bench";

    // One build alone, to set the upload rate at which an upload lasts as long.
    const auto calibrationStart = BootClock::now();
    const auto probe = runner.publisher.build(runner.publisher.inspect(clips.path() / "clip-0.mp4"),
                                              VideoDetails("Probe", std::nullopt, std::nullopt, VideoVisibility::publicVideo),
                                              AudioLoudness::web, std::nullopt, {});
    const double buildSeconds = std::chrono::duration<double>(BootClock::now() - calibrationStart).count();
    const auto rate = std::uint64_t(double(probe->byteCount()) / buildSeconds);
    std::cerr << fmt::format("one build: {:.1f} s, {} bytes; upload limit {} bytes/s\n", buildSeconds, probe->byteCount(), rate);
    runner.publisher.limiter = std::make_shared<RateLimiter>(rate);

    auto file = BulkSheetFile::open(input);
    const BulkColumnMapping mapping{*file.sheet.column("File"), file.sheet.column("Title"), file.sheet.column("Reference"),
                                    std::nullopt, std::nullopt};
    const auto items = file.prepareForRun(mapping);
    StageClock stages;
    const auto start = BootClock::now();
    const auto result = runner.run(file, items, ReimportMode::skip, std::ref(stages));
    const double wall = std::chrono::duration<double>(BootClock::now() - start).count();
    if (result.snapshot.counts.published != clipCount) {
        std::cerr << fmt::format("only {} of {} clips were published\n", result.snapshot.counts.published, clipCount);
        return 1;
    }
    const auto [build, upload] = stages.seconds();
    std::cout << fmt::format("wall_s={:.2f} build_s={:.2f} upload_s={:.2f} overlap_ratio={:.2f}\n", wall, build, upload,
                             (build + upload) / wall);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    int clips = 6;
    double seconds = 3;
    for (int index = 1; index + 1 < argc; index += 2) {
        const std::string flag = argv[index];
        if (flag == "--clips") clips = std::stoi(argv[index + 1]);
        else if (flag == "--seconds") seconds = std::stod(argv[index + 1]);
    }
    try {
        return run(clips, seconds);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
