#include "core/net/FileDownloader.hpp"

#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <mutex>

#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {
namespace {

class FileDownloaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir = makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-download-");
        remover.emplace(dir);
        content = std::string(300'000, 'v');
        server.Get("/source.mp4", [this](const httplib::Request& request, httplib::Response& response) {
            const int call = ++calls;
            {
                std::lock_guard lock(mutex);
                ranges.push_back(request.get_header_value("Range"));
            }
            if (call <= failFirst) {
                response.status = 503;
                return;
            }
            if (call <= failFirst + shortFirst) {
                // Announces the whole length (of the range asked for) and sends a tenth of the file.
                response.set_content_provider(
                    content.size(), "video/mp4",
                    [this, sent = false](std::size_t offset, std::size_t length, httplib::DataSink& sink) mutable {
                        if (sent) return false;
                        sent = true;
                        sink.write(content.data() + offset, std::min(length, content.size() / 10));
                        return true;
                    });
                return;
            }
            response.set_content(content, "video/mp4");
        });
        port = server.bind_to_any_port("127.0.0.1");
        thread = std::thread([this] { server.listen_after_bind(); });
        while (!server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    void TearDown() override {
        server.stop();
        thread.join();
    }
    std::string url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(port) + path; }

    httplib::Server server;
    std::thread thread;
    int port = 0;
    std::string content;
    std::atomic<int> calls = 0;
    std::mutex mutex;
    std::vector<std::string> ranges;  // the Range header of each request
    int failFirst = 0;
    int shortFirst = 0;
    std::filesystem::path dir;
    std::optional<DirectoryRemover> remover;
};

TEST_F(FileDownloaderTest, RetriesServerTroubleAndCutShortBodiesUntilTheFileIsWhole) {
    failFirst = 1;
    shortFirst = 1;
    FileDownloader downloader(std::make_shared<HttpClient>(), RetryPolicy{3, std::chrono::duration<double>(0.001)});
    std::int64_t lastReceived = 0;
    std::int64_t lastExpected = 0;
    downloader.download(url("/source.mp4"), dir / "source.mp4", 1000, [&](std::int64_t received, std::int64_t expected) {
        lastReceived = received;
        lastExpected = expected;
    });
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(ranges, (std::vector<std::string>{"", "", "bytes=30000-"})) << "the retry goes on after the cut";
    EXPECT_EQ(readFile(dir / "source.mp4"), content);
    EXPECT_EQ(lastReceived, 300'000);
    EXPECT_EQ(lastExpected, 300'000);
    EXPECT_FALSE(std::filesystem::exists(dir / "source.mp4.part"));
}

TEST_F(FileDownloaderTest, FailuresNameTheHostAndLeaveNoFile) {
    FileDownloader downloader(std::make_shared<HttpClient>(), RetryPolicy{2, std::chrono::duration<double>(0.001)});
    try {
        downloader.download(url("/missing.mp4"), dir / "missing.mp4");
        FAIL() << "expected a failure";
    } catch (const VorlenError& error) {
        EXPECT_EQ(error.text(), "the download from 127.0.0.1:" + std::to_string(port) + " failed with HTTP 404");
    }
    EXPECT_EQ(calls, 0);

    shortFirst = 5;
    try {
        downloader.download(url("/source.mp4"), dir / "source.mp4");
        FAIL() << "expected a failure";
    } catch (const VorlenError& error) {
        EXPECT_TRUE(error.is<failure::IncompleteDownload>()) << error.what();
        EXPECT_EQ(error.as<failure::IncompleteDownload>()->announced, 300'000);
        EXPECT_EQ(error.as<failure::IncompleteDownload>()->received, 90'000) << "each attempt goes on from the last";
    }
    EXPECT_EQ(calls, 3);
    EXPECT_TRUE(std::filesystem::is_empty(dir));
}

}  // namespace
}  // namespace vorlen
