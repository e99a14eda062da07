#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/publish/FrameReader.hpp"
#include "core/publish/PosterProposal.hpp"

namespace vorlen {

// Where the review's posters come from: frames of the proposal's video and
// image files. It remembers every poster it handed out, so that an answer can
// only name one of those.
class PosterSource {
public:
    PosterSource(FrameReader reader, PosterProposal proposal, std::optional<Poster> current);

    const std::optional<Poster>& selection() const { return selection_; }
    const std::vector<double>& sampleTimes() const { return sampleTimes_; }
    double duration() const { return proposal_.duration; }

    Poster frame(double time);
    Poster image(const std::filesystem::path& file);

    std::optional<Poster> poster(const std::string& name) const;

private:
    Poster remember(Poster poster);

    FrameReader reader_;
    PosterProposal proposal_;
    std::optional<Poster> selection_;
    std::vector<double> sampleTimes_;
    mutable std::mutex mutex_;
    std::map<std::string, Poster> posters_;
};

}  // namespace vorlen
