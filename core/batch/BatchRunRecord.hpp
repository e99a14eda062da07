#pragma once

#include <string>
#include <string_view>

#include "core/base/Dates.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

// The one object in a bucket that says which batch run holds the site: the lock
// that computers without a shared lock service agree on through conditional writes.
struct BatchRunRecord {
    static constexpr const char* key = "_vorlen/batch-run.json";

    std::string id;  // the run's identity, a fresh UUID
    BatchRunKind kind = BatchRunKind::bulkUpload;
    std::string computerName;
    SystemTime updated;

    std::string encoded() const;
    // Fails with a metadata error in words for the person; never touches the bucket.
    static BatchRunRecord decoded(std::string_view data);

    bool operator==(const BatchRunRecord&) const = default;
};

}  // namespace vorlen
