#include "core/publish/HLSRewriter.hpp"

#include <fmt/format.h>

#include <charconv>
#include <optional>

#include "core/base/VorlenError.hpp"

namespace vorlen::HLSRewriter {

namespace {

std::string_view trimmedLine(std::string_view line) {
    const char* blanks = " \t\r\n\v\f";
    auto first = line.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    auto last = line.find_last_not_of(blanks);
    return line.substr(first, last - first + 1);
}

// "<length>@<offset>"; the offset is never left implicit here.
ByteRange rangeOf(std::string_view text) {
    const auto at = text.find('@');
    std::uint64_t length = 0, offset = 0;
    auto parse = [](std::string_view digits, std::uint64_t& value) {
        auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        return error == std::errc() && end == digits.data() + digits.size() && !digits.empty();
    };
    if (at == std::string_view::npos || !parse(text.substr(0, at), length) || !parse(text.substr(at + 1), offset))
        throw VorlenError::manifest(fmt::format("bad byte range {}", text));
    return {offset, length};
}

// The value of a quoted attribute of a tag line.
std::string_view quotedAttribute(std::string_view line, std::string_view name) {
    const auto start = line.find(std::string(name) + "=\"");
    if (start == std::string_view::npos) return {};
    const auto value = start + name.size() + 2;
    return line.substr(value, line.find('"', value) - value);
}

}  // namespace

StreamLayout layoutOf(std::string_view playlist) {
    StreamLayout layout;
    bool hasMap = false;
    std::optional<ByteRange> pending;
    std::size_t position = 0;
    while (position < playlist.size()) {
        auto end = std::min(playlist.find('\n', position), playlist.size());
        auto test = trimmedLine(playlist.substr(position, end - position));
        position = end + 1;
        if (test.starts_with("#EXT-X-MAP:")) {
            layout.initSegment = {std::string(quotedAttribute(test, "URI")), rangeOf(quotedAttribute(test, "BYTERANGE"))};
            hasMap = true;
        } else if (test.starts_with("#EXT-X-BYTERANGE:")) {
            pending = rangeOf(test.substr(17));
        } else if (!test.empty() && !test.starts_with("#")) {
            if (!pending) throw VorlenError::manifest("media playlist has a segment without a byte range");
            layout.segments.push_back({std::string(test), *pending});
            pending.reset();
        }
    }
    if (!hasMap) throw VorlenError::manifest("media playlist has 0 EXT-X-MAP tags, expected 1");
    return layout;
}

std::string rewrite(std::string_view playlist, const StreamLayout& layout) {
    std::string out;
    out.reserve(playlist.size() + layout.segments.size() * 48);
    std::size_t maps = 0;
    std::size_t nextSegment = 0;
    std::size_t position = 0;
    while (position < playlist.size()) {
        auto end = playlist.find('\n', position);
        if (end == std::string_view::npos) end = playlist.size();
        auto line = playlist.substr(position, end - position);
        position = end + 1;
        auto test = trimmedLine(line);

        if (test.starts_with("#EXT-X-MAP:")) {
            ++maps;
            const auto& init = layout.initSegment;
            out += fmt::format("#EXT-X-MAP:URI=\"{}\",BYTERANGE=\"{}@{}\"\n", init.file, init.range.length, init.range.offset);
        } else if (test.starts_with("#EXT-X-BYTERANGE:")) {
            throw VorlenError::manifest("media playlist already uses byte ranges");
        } else if (test.empty() || test.starts_with("#")) {
            out += line;
            out += '\n';
        } else {
            if (nextSegment >= layout.segments.size()) {
                throw VorlenError::manifest("media playlist has more segments than the packaged stream");
            }
            const auto& segment = layout.segments[nextSegment++];
            // The offset is always written: an implicit one would depend on the previous line.
            out += fmt::format("#EXT-X-BYTERANGE:{}@{}\n{}\n", segment.range.length, segment.range.offset, segment.file);
        }
    }
    if (maps != 1) throw VorlenError::manifest(fmt::format("media playlist has {} EXT-X-MAP tags, expected 1", maps));
    if (nextSegment < layout.segments.size()) {
        throw VorlenError::manifest("media playlist has fewer segments than the packaged stream");
    }
    return out;
}

}  // namespace vorlen::HLSRewriter
