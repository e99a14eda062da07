// Chunks one packaged stream and prints how long it took and how much memory
// the process held at most. run.sh compares it with cat on the same files.
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>

#include "core/publish/Chunker.hpp"

int main(int argc, char** argv) {
    if (argc < 4) {
        fmt::print(stderr, "usage: bench_chunk <package dir> <stream> <output dir> [max chunk bytes]\n");
        return 2;
    }
    std::uint64_t maxChunkBytes = argc > 4 ? std::strtoull(argv[4], nullptr, 10) : vorlen::Chunker::maxChunkBytes;
    auto start = std::chrono::steady_clock::now();
    auto layout = vorlen::Chunker::chunk(vorlen::PackagedStream{argv[2]}, argv[1], argv[3], maxChunkBytes);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    std::uint64_t bytes = layout.initSegment.range.length;
    for (const auto& segment : layout.segments) bytes += segment.range.length;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    fmt::print("chunk_s={:.3f} bytes={} segments={} chunks={} max_rss_kb={}\n", seconds, bytes, layout.segments.size(),
               layout.files().size(), usage.ru_maxrss);
    return 0;
}
