#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vorlen {

// The links of a video's description: Markdown links as written, and bare web
// addresses that an imported description holds. Texts are UTF-8; ranges count
// UTF-16 units, as the description editor does.
namespace DescriptionText {

struct TextRange {
    std::size_t location = 0;
    std::size_t length = 0;
    bool operator==(const TextRange&) const = default;
};

struct Link {
    TextRange range;      // the whole link
    TextRange textRange;  // its visible text; for a bare address, the address itself
    std::string address;
    bool operator==(const Link&) const = default;
};

// [text](address) with an http, https or mailto address, in the order they stand.
std::vector<Link> markdownLinks(std::string_view text);

// http and https addresses outside Markdown links, without trailing punctuation.
std::vector<Link> bareAddresses(std::string_view text);

// The text with each bare address made a Markdown link to itself, except an address
// holding a bracket, which could not stand inside one.
std::string linked(std::string_view text);

}  // namespace DescriptionText

}  // namespace vorlen
