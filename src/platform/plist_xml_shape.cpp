#include "platform/plist_xml_shape.h"

#include <algorithm>
#include <vector>

#include "platform/input_limits.h"

namespace kora {
namespace {

constexpr PlistShape kPastCaps{kPlistMaxDepth + 1, kPlistMaxNodes + 1};

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

bool isNameChar(char c) {
    return !isSpace(c) && c != '/' && c != '>' && c != '<' && c != '=' && c != '"' && c != '\'';
}

// Walks the markup once. Comments, processing instructions, CDATA sections and
// the DOCTYPE are skipped as XML defines them, so a tag inside one is not
// counted; libplist skips them the same way. Every element counts, not only
// <array> and <dict>, and an end tag must match its start tag. Where parsers
// are known to disagree (libplist ends an internal DTD subset at the first
// "]>", even inside a comment), the input is refused rather than guessed at.
class XmlShapeReader {
public:
    explicit XmlShapeReader(std::string_view text) : text_(text) {}

    PlistShape read() {
        for (at_ = text_.find('<'); at_ != std::string_view::npos; at_ = text_.find('<', at_)) {
            if (!markup()) return kPastCaps;
            if (shape_.depth > kPlistMaxDepth || shape_.nodes > kPlistMaxNodes) return kPastCaps;
        }
        return open_.empty() ? shape_ : kPastCaps;
    }

private:
    bool markup() {
        const std::string_view rest = text_.substr(at_);
        if (rest.starts_with("<!--")) return skipPast(4, "-->");
        if (rest.starts_with("<![CDATA[")) return skipPast(9, "]]>");
        if (rest.starts_with("<?")) return skipPast(2, "?>");
        if (rest.starts_with("<!DOCTYPE")) return doctype();
        if (rest.starts_with("<!")) return false;
        if (rest.starts_with("</")) return endTag();
        return startTag();
    }

    bool skipPast(std::size_t opening, std::string_view terminator) {
        const std::size_t end = text_.find(terminator, at_ + opening);
        if (end == std::string_view::npos) return false;
        at_ = end + terminator.size();
        return true;
    }

    // Only before the root element, and without an internal subset: a property
    // list has no use for either. Ending at the first '>' sees at least as many
    // tags as any parser would.
    bool doctype() {
        if (seenElement_) return false;
        const std::size_t end = text_.find('>', at_);
        if (end == std::string_view::npos) return false;
        if (text_.substr(at_, end - at_).find('[') != std::string_view::npos) return false;
        at_ = end + 1;
        return true;
    }

    std::string_view name(std::size_t from) const {
        std::size_t end = from;
        while (end < text_.size() && isNameChar(text_[end])) ++end;
        return text_.substr(from, end - from);
    }

    bool startTag() {
        const std::string_view element = name(at_ + 1);
        if (element.empty()) return false;
        // Attribute values may hold '>'; single quotes are refused because
        // libplist does not honour them.
        std::size_t end = at_ + 1 + element.size();
        for (; end < text_.size() && text_[end] != '>'; ++end) {
            if (text_[end] == '\'' || text_[end] == '<') return false;
            if (text_[end] == '"') {
                end = text_.find('"', end + 1);
                if (end == std::string_view::npos) return false;
            }
        }
        if (end >= text_.size()) return false;
        const bool empty = text_[end - 1] == '/';
        at_ = end + 1;
        count(element);
        if (!empty) open_.push_back(element);
        seenElement_ = true;
        return true;
    }

    // The <plist> root is no level of its own, and a scalar element only sits
    // at its parent's level, as in the converted tree.
    void count(std::string_view element) {
        const bool root = open_.empty();
        if (root) rootIsPlist_ = element == "plist";
        if (root && rootIsPlist_) return;
        const std::size_t ancestors = open_.size() - (rootIsPlist_ ? 1 : 0);
        const bool container = element == "array" || element == "dict";
        shape_.depth = std::max(shape_.depth, ancestors + (container ? 1 : 0));
        ++shape_.nodes;
    }

    bool endTag() {
        const std::string_view element = name(at_ + 2);
        std::size_t end = at_ + 2 + element.size();
        while (end < text_.size() && isSpace(text_[end])) ++end;
        if (end >= text_.size() || text_[end] != '>') return false;
        if (open_.empty() || open_.back() != element) return false;
        open_.pop_back();
        at_ = end + 1;
        return true;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::vector<std::string_view> open_;
    bool rootIsPlist_ = false;
    bool seenElement_ = false;
    PlistShape shape_;
};

}  // namespace

PlistShape xmlPlistShape(std::string_view text) { return XmlShapeReader(text).read(); }

}  // namespace kora
