#include "core/publish/DASHRewriter.hpp"

#include <fmt/format.h>

#include <charconv>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <pugixml.hpp>
#include <sstream>

#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::DASHRewriter {

namespace {

[[noreturn]] void fail(const std::string& text) { throw VorlenError::manifest(text); }

void parse(pugi::xml_document& document, std::string_view mpd) {
    // pugixml never reads a DTD nor resolves external entities.
    auto parsed = document.load_buffer(mpd.data(), mpd.size(), pugi::parse_default | pugi::parse_comments,
                                       pugi::encoding_utf8);
    if (!parsed) fail(fmt::format("MPD XML: {}", parsed.description()));
}

std::string saved(const pugi::xml_document& document) {
    std::ostringstream out;
    document.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
    return out.str();
}

std::string rangeText(const ByteRange& range) {
    auto last = range.length == 0 ? range.offset : range.offset + range.length - 1;
    return fmt::format("{}-{}", range.offset, last);
}

const StreamLayout& layoutFor(const pugi::xml_node& segmentTemplate, const std::vector<StreamLayout>& layouts,
                              std::string& name) {
    auto initialization = segmentTemplate.attribute("initialization");
    if (!initialization) fail("SegmentTemplate has no initialization");
    std::string value = initialization.value();
    auto slash = value.rfind('/');
    if (slash == std::string::npos) fail(fmt::format("initialization {} is not inside a stream directory", value));
    name = value.substr(0, slash);
    for (const auto& layout : layouts) {
        if (layout.directory == name) return layout;
    }
    fail(fmt::format("no chunk layout for stream {}", name));
}

std::uint64_t timelineCount(const pugi::xml_node& segmentTemplate) {
    std::uint64_t count = 0;
    for (auto s : segmentTemplate.child("SegmentTimeline").children("S")) {
        std::uint64_t repeats = 0;
        if (auto r = s.attribute("r")) {
            std::string_view text = r.value();
            std::int64_t value = 0;
            auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
            if (error != std::errc() || end != text.data() + text.size()) fail(fmt::format("bad S@r value {}", text));
            if (value < 0) fail("open-ended S@r is not supported");
            repeats = static_cast<std::uint64_t>(value);
        }
        if (repeats + 1 > std::numeric_limits<std::uint64_t>::max() - count) {
            fail(fmt::format("bad S@r value {}", s.attribute("r").value()));
        }
        count += repeats + 1;
    }
    return count;
}

void replaceWithList(pugi::xml_node segmentTemplate, const std::vector<StreamLayout>& layouts) {
    std::string name;
    const auto& layout = layoutFor(segmentTemplate, layouts, name);
    auto count = timelineCount(segmentTemplate);
    if (count != layout.segments.size()) {
        fail(fmt::format("stream {}: the timeline has {} segments but the stream has {}", name, count,
                         layout.segments.size()));
    }
    auto parent = segmentTemplate.parent();
    auto list = parent.insert_child_before("SegmentList", segmentTemplate);
    for (const char* attribute : {"timescale", "presentationTimeOffset", "duration"}) {
        if (auto found = segmentTemplate.attribute(attribute)) list.append_attribute(attribute) = found.value();
    }
    auto initialization = list.append_child("Initialization");
    initialization.append_attribute("sourceURL") = layout.initSegment.file.c_str();
    initialization.append_attribute("range") = rangeText(layout.initSegment.range).c_str();
    while (auto child = segmentTemplate.first_child()) list.append_move(child);
    for (const auto& segment : layout.segments) {
        auto url = list.append_child("SegmentURL");
        url.append_attribute("media") = segment.file.c_str();
        url.append_attribute("mediaRange") = rangeText(segment.range).c_str();
    }
    parent.remove_child(segmentTemplate);
}

void walk(pugi::xml_node node, const std::vector<StreamLayout>& layouts) {
    for (auto child = node.first_child(); child;) {
        auto next = child.next_sibling();
        if (child.type() == pugi::node_element) {
            if (std::strcmp(child.name(), "SegmentTemplate") == 0) {
                replaceWithList(child, layouts);
            } else {
                walk(child, layouts);
            }
        }
        child = next;
    }
}

}  // namespace

std::string rewrite(std::string_view mpd, const std::vector<StreamLayout>& layouts) {
    pugi::xml_document document;
    parse(document, mpd);
    auto root = document.document_element();
    if (!root) fail("MPD XML: no root element");
    if (std::strcmp(root.name(), "MPD") == 0) {
        // Byte ranges leave the on-demand and live profiles behind.
        if (auto profiles = root.attribute("profiles")) profiles = "urn:mpeg:dash:profile:isoff-main:2011";
    }
    walk(document, layouts);
    return saved(document);
}

namespace {

void prefixAddresses(pugi::xml_node node, const std::string& prefix, bool underPrefixedBase) {
    auto base = node.child("BaseURL");
    if (base && isRelativeAddress(base.text().get()) && !underPrefixedBase) {
        base.text() = (prefix + base.text().get()).c_str();
        underPrefixedBase = true;
    }
    if (!underPrefixedBase)
        for (const char* name : {"initialization", "media", "sourceURL", "index"})
            if (auto attribute = node.attribute(name); attribute && isRelativeAddress(attribute.value()))
                attribute = (prefix + attribute.value()).c_str();
    for (auto child : node.children())
        if (child.type() == pugi::node_element && std::strcmp(child.name(), "BaseURL") != 0)
            prefixAddresses(child, prefix, underPrefixedBase);
}

}  // namespace

std::string withMediaPrefix(std::string_view mpd, const std::string& prefix) {
    pugi::xml_document document;
    parse(document, mpd);
    prefixAddresses(document.document_element(), prefix, false);
    return saved(document);
}

namespace {

bool isAudioSet(const pugi::xml_node& node) {
    return std::strcmp(node.name(), "AdaptationSet") == 0 && std::strcmp(node.attribute("contentType").value(), "audio") == 0;
}

// A representation's segments, its own or its adaptation set's.
pugi::xml_node segmentsOf(const pugi::xml_node& representation) {
    for (auto node : {representation, representation.parent()})
        for (const char* name : {"SegmentList", "SegmentTemplate"})
            if (auto found = node.child(name)) return found;
    return {};
}

// The stream directory that a representation's init segment lies in: "a_stereo"
// for "r-k3x9a2mq/a_stereo/001.mp4" or "a_stereo/init.mp4".
std::string streamOf(const pugi::xml_node& representation) {
    auto segments = segmentsOf(representation);
    std::string_view path = segments.child("Initialization").attribute("sourceURL").value();
    if (path.empty()) path = segments.attribute("initialization").value();
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos) return {};
    path = path.substr(0, slash);
    return std::string(path.substr(path.rfind('/') + 1));
}

void forEachAudioRepresentation(pugi::xml_node node, const std::function<void(pugi::xml_node)>& visit) {
    for (auto child : node.children()) {
        if (child.type() != pugi::node_element) continue;
        if (isAudioSet(child)) {
            for (auto representation : child.children("Representation")) visit(representation);
        } else {
            forEachAudioRepresentation(child, visit);
        }
    }
}

}  // namespace

std::string withAudio(std::string_view mpd, std::string_view audioMpd) {
    pugi::xml_document audio;
    parse(audio, audioMpd);
    std::map<std::string, pugi::xml_node> streams;
    forEachAudioRepresentation(audio, [&](pugi::xml_node representation) { streams[streamOf(representation)] = representation; });

    pugi::xml_document document;
    parse(document, mpd);
    forEachAudioRepresentation(document, [&](pugi::xml_node representation) {
        auto found = streams.find(streamOf(representation));
        if (found == streams.end()) fail("the new audio has no stream for a representation of the MPD");
        const auto& next = found->second;
        auto old = segmentsOf(representation);
        auto holder = old.parent();
        holder.insert_copy_before(segmentsOf(next), old);
        holder.remove_child(old);
        representation.remove_attribute("bandwidth");
        representation.append_attribute("bandwidth") = next.attribute("bandwidth").value();
    });
    return saved(document);
}

}  // namespace vorlen::DASHRewriter
