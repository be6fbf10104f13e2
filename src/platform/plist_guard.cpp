#include "platform/plist_guard.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/input_limits.h"
#include "platform/plist_xml_shape.h"

namespace kora {
namespace {

constexpr PlistShape kPastCaps{kPlistMaxDepth + 1, kPlistMaxNodes + 1};

// The binary form: a header, objects, an offset table and a 32-byte trailer.
class BinaryPlist {
public:
    explicit BinaryPlist(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    bool readTrailer() {
        if (bytes_.size() < 8 + 32) return false;
        const std::size_t trailer = bytes_.size() - 32;
        offsetSize_ = bytes_[trailer + 6];
        refSize_ = bytes_[trailer + 7];
        const std::uint64_t count = readNumber(trailer + 8, 8);
        top_ = readNumber(trailer + 16, 8);
        tableOffset_ = readNumber(trailer + 24, 8);
        if (offsetSize_ == 0 || offsetSize_ > 8 || refSize_ == 0 || refSize_ > 8) return false;
        if (tableOffset_ >= trailer || count == 0 || top_ >= count) return false;
        if (count > (trailer - tableOffset_) / offsetSize_) return false;
        count_ = static_cast<std::size_t>(count);
        return true;
    }

    // Depth and node count by an explicit depth-first walk: deep input must
    // not deepen our own stack either. Each object is looked at once, so a
    // graph of shared references is counted without expanding it; counts
    // saturate one past the cap. An object met again while still on the walk
    // is a cycle.
    PlistShape shape() {
        enum : std::uint8_t { Unseen, Open, Done };
        std::vector<std::uint8_t> state(count_, Unseen);
        std::vector<PlistShape> shapeOf(count_);
        struct Frame {
            std::size_t object;
            std::vector<std::size_t> children;
            std::size_t next;
        };
        std::vector<Frame> stack;
        auto push = [&](std::size_t object) -> bool {
            std::optional<std::vector<std::size_t>> children = childrenOf(object);
            if (!children) return false;
            state[object] = Open;
            stack.push_back(Frame{object, std::move(*children), 0});
            return true;
        };
        if (!push(static_cast<std::size_t>(top_))) return kPastCaps;
        while (!stack.empty()) {
            Frame& frame = stack.back();
            if (frame.next == frame.children.size()) {
                shapeOf[frame.object] = combine(frame.object, frame.children, shapeOf);
                state[frame.object] = Done;
                stack.pop_back();
                continue;
            }
            const std::size_t child = frame.children[frame.next++];
            if (state[child] == Open) return kPastCaps;
            if (state[child] == Unseen && !push(child)) return kPastCaps;
        }
        return shapeOf[static_cast<std::size_t>(top_)];
    }

private:
    PlistShape combine(std::size_t object, const std::vector<std::size_t>& children,
                       const std::vector<PlistShape>& shapeOf) const {
        PlistShape shape{0, 1};
        for (std::size_t child : children) {
            shape.depth = std::max(shape.depth, shapeOf[child].depth);
            shape.nodes = std::min(shape.nodes + shapeOf[child].nodes, kPlistMaxNodes + 1);
        }
        if (isContainer(object)) ++shape.depth;
        return shape;
    }

    std::uint64_t readNumber(std::size_t at, std::size_t size) const {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) value = (value << 8) | bytes_[at + i];
        return value;
    }

    std::optional<std::size_t> objectOffset(std::size_t object) const {
        const std::uint64_t offset = readNumber(tableOffset_ + object * offsetSize_, offsetSize_);
        if (offset < 8 || offset >= tableOffset_) return std::nullopt;
        return static_cast<std::size_t>(offset);
    }

    bool isContainer(std::size_t object) const {
        const std::optional<Header> header = headerOf(object);
        if (!header) return false;
        return header->kind == 0xA || header->kind == 0xB || header->kind == 0xC ||
               header->kind == 0xD;
    }

    // An object's marker byte holds its kind in the high nibble and its length
    // in the low one, or 0xF and then the length as an integer object.
    struct Header {
        std::uint8_t kind;
        std::uint64_t length;
        std::size_t body;  // offset of the first byte after the header
    };

    std::optional<Header> headerOf(std::size_t object) const {
        const std::optional<std::size_t> at = objectOffset(object);
        if (!at) return std::nullopt;
        Header header{static_cast<std::uint8_t>(bytes_[*at] >> 4),
                      static_cast<std::uint64_t>(bytes_[*at] & 0x0F), *at + 1};
        if (header.length == 0x0F) {
            const std::size_t cursor = header.body;
            if (cursor >= tableOffset_ || (bytes_[cursor] >> 4) != 0x1) return std::nullopt;
            const std::size_t size = std::size_t{1} << (bytes_[cursor] & 0x3);
            if (cursor + 1 + size > tableOffset_) return std::nullopt;
            header.length = readNumber(cursor + 1, size);
            header.body = cursor + 1 + size;
        }
        return header;
    }

    // The objects an array, set or dictionary refers to; none for scalars.
    std::optional<std::vector<std::size_t>> childrenOf(std::size_t object) const {
        const std::optional<Header> header = headerOf(object);
        if (!header) return std::nullopt;
        const std::uint8_t kind = header->kind;
        if (kind != 0xA && kind != 0xB && kind != 0xC && kind != 0xD) {
            return std::vector<std::size_t>{};
        }
        std::uint64_t count = header->length;
        if (kind == 0xD) {
            if (count > std::numeric_limits<std::uint64_t>::max() / 2) return std::nullopt;
            count *= 2;
        }
        if (count > (tableOffset_ - header->body) / refSize_) return std::nullopt;
        std::vector<std::size_t> children;
        children.reserve(static_cast<std::size_t>(count));
        for (std::uint64_t i = 0; i < count; ++i) {
            const std::uint64_t ref = readNumber(header->body + i * refSize_, refSize_);
            if (ref >= count_) return std::nullopt;
            const bool isKey = kind == 0xD && i < count / 2;
            if (isKey && !isPlainKey(static_cast<std::size_t>(ref))) return std::nullopt;
            children.push_back(static_cast<std::size_t>(ref));
        }
        return children;
    }

    // libplist asserts (and so aborts the process) on a dictionary key that is
    // not a string or holds a NUL character, so such files are refused here.
    bool isPlainKey(std::size_t object) const {
        const std::optional<Header> header = headerOf(object);
        if (!header || (header->kind != 0x5 && header->kind != 0x6)) return false;
        const std::size_t unit = header->kind == 0x6 ? 2 : 1;
        if (header->length > (tableOffset_ - header->body) / unit) return false;
        for (std::uint64_t i = 0; i < header->length; ++i) {
            if (readNumber(header->body + i * unit, unit) == 0) return false;
        }
        return true;
    }

    std::span<const std::uint8_t> bytes_;
    std::size_t offsetSize_ = 0;
    std::size_t refSize_ = 0;
    std::size_t count_ = 0;
    std::uint64_t top_ = 0;
    std::uint64_t tableOffset_ = 0;
};

}  // namespace

PlistShape plistShape(std::span<const std::uint8_t> bytes) {
    if (bytes.size() >= 8 && std::memcmp(bytes.data(), "bplist00", 8) == 0) {
        BinaryPlist plist(bytes);
        return plist.readTrailer() ? plist.shape() : kPastCaps;
    }
    return xmlPlistShape(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

bool withinPlistCaps(const PlistShape& shape) {
    return shape.depth <= kPlistMaxDepth && shape.nodes <= kPlistMaxNodes;
}

}  // namespace kora
