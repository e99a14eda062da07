#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace vorlen {

// Where a video of a batch run stands in the site.
struct BulkPublishedLocation {
    std::string folder;
    std::string pageURL;
    bool operator==(const BulkPublishedLocation&) const = default;
};

// How one item of a batch run ended.
namespace bulkOutcome {
struct Published { BulkPublishedLocation location; bool operator==(const Published&) const = default; };
struct Replaced {
    BulkPublishedLocation location;
    std::optional<std::string> problem;  // the replacement stands, but left something behind
    bool operator==(const Replaced&) const = default;
};
struct Skipped { BulkPublishedLocation location; bool operator==(const Skipped&) const = default; };
struct Failed { std::string message; bool operator==(const Failed&) const = default; };
}  // namespace bulkOutcome

using BulkRowOutcome = std::variant<bulkOutcome::Published, bulkOutcome::Replaced, bulkOutcome::Skipped, bulkOutcome::Failed>;

struct BulkRowCounts {
    std::int64_t alreadyDone = 0;
    std::int64_t published = 0;
    std::int64_t replaced = 0;
    std::int64_t skipped = 0;
    std::int64_t failed = 0;
    std::int64_t left = 0;
    bool operator==(const BulkRowCounts&) const = default;
};

}  // namespace vorlen
