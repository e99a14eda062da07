#include "core/publish/PosterSource.hpp"

#include "core/publish/PosterChoice.hpp"

namespace vorlen {

PosterSource::PosterSource(FrameReader reader, PosterProposal proposal, std::optional<Poster> current)
    : reader_(std::move(reader)), proposal_(std::move(proposal)),
      sampleTimes_(PosterChoice::samplingTimes(proposal_.duration)) {
    if (auto* selected = std::get_if<Poster>(&proposal_.selection)) selection_ = remember(*selected);
    if (current) remember(*current);
}

Poster PosterSource::frame(double time) {
    return remember(reader_.frame(proposal_.video, time));
}

Poster PosterSource::image(const std::filesystem::path& file) {
    return remember(posterFromImage(file, proposal_.maximumSize));
}

std::optional<Poster> PosterSource::poster(const std::string& name) const {
    std::lock_guard lock(mutex_);
    auto found = posters_.find(name);
    if (found == posters_.end()) return std::nullopt;
    return found->second;
}

Poster PosterSource::remember(Poster poster) {
    std::lock_guard lock(mutex_);
    posters_.insert_or_assign(poster.name, poster);
    return poster;
}

}  // namespace vorlen
