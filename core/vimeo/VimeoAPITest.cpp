#include "core/vimeo/VimeoAPI.hpp"

#include <gtest/gtest.h>

#include <mutex>

#include "core/base/Clock.hpp"
#include "core/base/VorlenError.hpp"
#include "testing/LoopbackServer.hpp"

namespace vorlen {
namespace {

constexpr const char* token = "vimeo-secret-token-1234";

std::string failureText(const std::function<void()>& work) {
    try {
        work();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no failure";
}

class VimeoAPITest : public ::testing::Test {
protected:
    testing::LoopbackServer server;
    std::mutex mutex;
    std::vector<double> waits;
    std::vector<httplib::Request> requests;

    void SetUp() override {
        server.server.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response&) {
            std::lock_guard lock(mutex);
            requests.push_back(request);
            return httplib::Server::HandlerResponse::Unhandled;
        });
    }

    VimeoAPI api() {
        server.start();
        Endpoints endpoints;
        endpoints.vimeoAPI = server.url("");
        RetryPolicy policy(3, std::chrono::duration<double>(1), [this](std::chrono::nanoseconds wait) {
            std::lock_guard lock(mutex);
            waits.push_back(std::chrono::duration<double>(wait).count());
        });
        return VimeoAPI(token, std::make_shared<HttpClient>(), endpoints, policy);
    }

    void answer(const std::string& path, int status, const std::string& body,
                std::vector<std::pair<std::string, std::string>> headers = {}) {
        server.server.Get(path, [=](const httplib::Request&, httplib::Response& response) {
            response.status = status;
            for (const auto& [name, value] : headers) response.set_header(name, value);
            response.set_content(body, "application/json");
        });
    }
};

TEST_F(VimeoAPITest, DecodesTheAccountAndSendsOnlyTheTokenInItsHeader) {
    answer("/me", 200, R"({"uri":"/users/42","name":"Ada","account":"plus"})");
    const auto account = api().account();
    EXPECT_EQ(account, (VimeoAccount{"42", "Ada", std::nullopt, "plus"}));
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "GET");
    EXPECT_EQ(requests[0].get_header_value("Authorization"), std::string("bearer ") + token);
    EXPECT_EQ(requests[0].get_header_value("Accept"), "application/vnd.vimeo.*+json;version=3.4");
    EXPECT_EQ(requests[0].target.find(token), std::string::npos);
}

TEST_F(VimeoAPITest, DecodesAVideoWithItsFilesPicturesAndDownloads) {
    answer("/videos/7", 200, R"({
        "uri": "/videos/7", "name": "Harbour", "duration": 61.5, "width": 1920, "height": 1080,
        "created_time": "2024-03-01T10:00:00+00:00", "status": "available", "transcode": {"status": "complete"},
        "privacy": {"view": "nobody", "original_view": "unlisted"},
        "metadata": {"is_cold_storage": true, "connections": {"texttracks": {"total": 2}}},
        "parent_folder": {"name": "Trips"},
        "pictures": {"sizes": [{"width": 640, "height": 360, "link": "https://i/640"}, {"width": "bad"},
                               {"width": 1280, "height": 720, "link": "https://i/1280"}]},
        "files": [{"quality": "hd", "width": 1920, "height": 1080, "size": 100},
                  {"quality": "source", "rendition": "source", "size": 900}],
        "download": [{"quality": "hd", "rendition": "1080p", "width": 1920, "height": 1080, "size": 100,
                      "link": "https://d/1", "expires": "2024-03-02T10:00:00+00:00"}, {"quality": "sd"}]
    })");
    const auto current = api().video("7");
    const auto& video = current.video;
    EXPECT_EQ(video.id, "7");
    EXPECT_EQ(video.title, "Harbour");
    EXPECT_EQ(video.duration, 61.5);
    EXPECT_EQ(video.size, (PixelSize{1920, 1080}));
    EXPECT_EQ(video.created, parseIso8601("2024-03-01T10:00:00Z"));
    EXPECT_TRUE(video.isReady);
    EXPECT_TRUE(video.isInColdStorage);
    EXPECT_EQ(video.privacy.kind, VimeoPrivacy::Kind::unlisted);
    EXPECT_EQ(video.thumbnail, (VimeoImage{"https://i/1280", {1280, 720}}));
    EXPECT_EQ(video.file, (VimeoFile{"source", "source", std::nullopt, 900}));
    EXPECT_EQ(video.textTrackCount, 2);
    EXPECT_EQ(video.folderName, "Trips");
    ASSERT_EQ(current.downloads.size(), 1u);
    EXPECT_EQ(current.downloads[0].link, "https://d/1");
    EXPECT_EQ(current.downloads[0].file, (VimeoFile{"hd", "1080p", PixelSize{1920, 1080}, 100}));
    EXPECT_EQ(current.downloads[0].expires, parseIso8601("2024-03-02T10:00:00Z"));
}

TEST_F(VimeoAPITest, AVideoWithOnlyItsNameHasNothingElse) {
    answer("/videos/8", 200, R"({"uri":"/videos/8","name":"Bare","privacy":{"view":"stranger"},"status":"available"})");
    const auto video = api().video("8").video;
    EXPECT_EQ(video.privacy, (VimeoPrivacy{VimeoPrivacy::Kind::other, "stranger"}));
    EXPECT_FALSE(video.isReady);
    EXPECT_FALSE(video.thumbnail || video.file || video.duration || video.created || video.folderName);
    EXPECT_EQ(video.textTrackCount, 0);
}

TEST_F(VimeoAPITest, FailuresCarryTheRequestAndVimeosWordsButNeverTheToken) {
    answer("/me", 401, R"({"error":"Unauthorized","developer_message":"The token is invalid.","error_code":8003})");
    answer("/videos/9", 200, R"({"uri":"/users/9","name":"x"})");
    answer("/videos/10", 200, "<html>");
    auto vimeo = api();
    EXPECT_EQ(failureText([&] { vimeo.account(); }), "Vimeo GET /me: HTTP 401, code 8003: Unauthorized");
    EXPECT_EQ(failureText([&] { vimeo.video("9"); }),
              "Vimeo GET /videos/9: HTTP 200, the response has an unexpected form: "
              "\u201c/users/9\u201d is not the URI of a video");
    EXPECT_TRUE(failureText([&] { vimeo.video("10"); }).starts_with("Vimeo GET /videos/10: HTTP 200, the response is not JSON: "));
    EXPECT_EQ(failureText([&] { vimeo.textTracks("1/../me"); }), "\u201c1/../me\u201d is not a Vimeo video ID");
    for (const auto& text : {failureText([&] { vimeo.account(); }), failureText([&] { vimeo.video("10"); })})
        EXPECT_EQ(text.find(token), std::string::npos);
    EXPECT_TRUE(waits.empty());
}

TEST_F(VimeoAPITest, ListFollowsPagesUntilNoNextAndReportsProgress) {
    server.server.Get("/me/videos", [](const httplib::Request& request, httplib::Response& response) {
        const int page = std::stoi(request.get_param_value("page"));
        const std::string next = page < 3 ? R"("/me/videos?page=)" + std::to_string(page + 1) + "\"" : "null";
        response.set_content(R"({"total":3,"paging":{"next":)" + next + R"(},"data":[{"uri":"/videos/)" +
                                 std::to_string(page) + R"(","name":"V"}]})",
                             "application/json");
    });
    std::vector<VimeoReadProgress> progress;
    const auto videos = api().videos(VimeoAPI::coldStorageFilter, [&](const auto& step) { progress.push_back(step); });
    ASSERT_EQ(videos.size(), 3u);
    EXPECT_EQ(videos[2].id, "3");
    EXPECT_EQ(progress, (std::vector<VimeoReadProgress>{{1, 3}, {2, 3}, {3, 3}}));
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[0].get_param_value("filter"), "cold_storage");
    EXPECT_EQ(requests[0].get_param_value("per_page"), "100");
    EXPECT_EQ(requests[0].get_param_value("sort"), "date");
}

TEST_F(VimeoAPITest, AListThatShrinksWhileReadFails) {
    answer("/me/videos", 200, R"({"total":5,"paging":{},"data":[{"uri":"/videos/1","name":"V"}]})");
    EXPECT_EQ(failureText([&] { api().videos(); }),
              "Vimeo gave only 1 of the 5 videos of \u201c/me/videos\u201d. Try again in a moment.");
}

TEST_F(VimeoAPITest, RateLimitedReadsWaitAsTheServerAsks) {
    std::atomic<int> calls = 0;
    const std::string future = formatIso8601(wallNow() + std::chrono::seconds(20));
    server.server.Get("/me", [&](const httplib::Request&, httplib::Response& response) {
        switch (calls++) {
            case 0: response.set_header("X-RateLimit-Reset", "2000-01-01T00:00:00+00:00"); break;
            case 1: response.set_header("Retry-After", "30"); break;
            case 2: response.set_header("X-RateLimit-Reset", future); break;
            default: response.set_content(R"({"uri":"/users/1","name":"A"})", "application/json"); return;
        }
        response.status = 429;
    });
    EXPECT_EQ(api().account().id, "1");
    ASSERT_EQ(waits.size(), 3u);
    EXPECT_EQ(waits[0], 2);   // a reset in the past adds nothing to the policy's own wait
    EXPECT_EQ(waits[1], 30);  // Retry-After outweighs the policy's 4 seconds
    EXPECT_GE(waits[2], 19);
    EXPECT_LE(waits[2], 20);
}

TEST_F(VimeoAPITest, TextTracksDropABadEntry) {
    answer("/videos/5/texttracks", 200,
           R"({"data":[{"language":"en","type":"subtitles","active":true,"link":"https://t/en"},"bad",{"language":"de"}]})");
    const auto tracks = api().textTracks("5");
    EXPECT_EQ(tracks, (std::vector<VimeoTextTrack>{{"en", "subtitles", true, "https://t/en"},
                                                   {"de", std::nullopt, false, std::nullopt}}));
}

}  // namespace
}  // namespace vorlen
