#include "app/FrameChooser.hpp"

#include <gtest/gtest.h>

#include "testing/MediaClip.hpp"

using namespace vorlen;
using namespace vorlen::app;

TEST(FrameChooserTest, ReadsAThumbnailForEachSampleTimeAndStopsWhenDropped) {
    vorlen::testing::ClipFolder clips;
    auto clip = clips.make("clip.mp4", vorlen::testing::lavfiVideo(320, 180, 2) + " -c:v libx264 -pix_fmt yuv420p");
    PosterProposal proposal{std::exception_ptr(), clip, 2.0, {320, 180}};
    auto source = std::make_shared<PosterSource>(FrameReader(Tools::locate()), proposal, std::nullopt);
    PostedQueue queue;

    auto chooser = FrameChooser::make(source, queue, std::chrono::milliseconds(0), 64);
    int changes = 0;
    chooser->onChange([&] { ++changes; });
    chooser->start();
    EXPECT_TRUE(chooser->isLoading());
    queue.runUntil([&] { return !chooser->isLoading(); });
    ASSERT_EQ(chooser->thumbnails().size(), chooser->sampleTimes().size());
    EXPECT_EQ(chooser->thumbnails().at(0).width, 64);
    EXPECT_EQ(chooser->thumbnails().at(11).time, chooser->sampleTimes()[11]);
    EXPECT_FALSE(chooser->failure());
    EXPECT_EQ(changes, 13);

    // A chooser dropped while it reads stops at once, and what it had posted finds nobody.
    auto dropped = FrameChooser::make(source, queue, std::chrono::seconds(5), 64);
    dropped->start();
    dropped.reset();
    queue.drain();
}
