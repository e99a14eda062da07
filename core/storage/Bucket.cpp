#include "core/storage/Bucket.hpp"

#include <algorithm>

#include "core/base/Task.hpp"

namespace vorlen {

std::string unquotedETag(std::string_view etag) {
    if (etag.size() >= 2 && etag.front() == '"' && etag.back() == '"') etag = etag.substr(1, etag.size() - 2);
    return std::string(etag);
}

std::optional<std::string> Bucket::objectRange(const std::string& key, const ByteRange& range) {
    auto data = object(key);
    if (!data) return std::nullopt;
    if (range.offset + range.length > data->size()) throw VorlenError::integrity(key, shortObject);
    return data->substr(range.offset, range.length);
}

std::vector<Bucket::ListPage> Bucket::listAll(const std::string& prefix) {
    std::vector<ListPage> pages;
    std::optional<std::string> token;
    do {
        pages.push_back(listPage(prefix, std::nullopt, token, 0));
        token = pages.back().nextToken;
    } while (token);
    return pages;
}

std::vector<std::string> Bucket::listKeys(const std::string& prefix) {
    std::vector<std::string> keys;
    for (const auto& page : listAll(prefix))
        for (const auto& object : page.objects) keys.push_back(object.key);
    return keys;
}

std::vector<Bucket::ListRange> Bucket::ranges(std::vector<std::string> boundaries) {
    std::sort(boundaries.begin(), boundaries.end());
    std::vector<ListRange> result;
    std::optional<std::string> previous;
    for (auto& boundary : boundaries) {
        result.push_back({previous, boundary});
        previous = std::move(boundary);
    }
    result.push_back({previous, std::nullopt});
    return result;
}

void Bucket::listRanges(const std::string& prefix, const std::vector<ListRange>& ranges, int retries,
                        std::chrono::duration<double> delay, const std::function<void(const ListPage&)>& onPage) {
    using Arrival = std::pair<std::size_t, ListPage>;
    TaskGroup<Arrival> group;
    auto start = [&](std::size_t index, std::optional<std::string> token) {
        group.spawn([this, &prefix, &ranges, index, token = std::move(token), retries, delay] {
            return Arrival{index, listPage(prefix, token ? std::nullopt : ranges[index].startAfter, token, retries, delay)};
        });
    };
    for (std::size_t index = 0; index < ranges.size(); ++index) start(index, std::nullopt);
    // The first failure leaves the loop; the group cancels the other chains as it goes.
    while (auto arrival = group.next()) {
        auto& [index, page] = *arrival;
        if (const auto& through = ranges[index].through) {
            auto past = std::find_if(page.objects.begin(), page.objects.end(),
                                     [&](const ListedObject& object) { return object.key > *through; });
            if (past != page.objects.end()) {
                page.objects.erase(past, page.objects.end());
                page.nextToken.reset();
            }
        }
        onPage(page);
        if (page.nextToken) start(index, page.nextToken);
    }
}

}  // namespace vorlen
