#include "root/root_edit.h"

#include <algorithm>

namespace dpdu::root {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";
// Left in a root element that was written as <MVCI_PDU_API_ROOT .../>, so that removing the entry
// can write it like that again.
constexpr std::string_view kWasEmpty = "<!-- was empty before Tarvik's entry -->";

// How a file writes an entry.
struct Style {
    std::string line_end;   // empty: everything on one line
    std::string separator;  // before an entry: a line end and its indentation
    std::string indent;     // of an entry
    std::string step;       // more for what is inside it
};

std::string_view Of(std::string_view text, xml::Range range) {
    return text.substr(range.begin, range.end - range.begin);
}

// The blanks and line ends that precede a position.
xml::Range BlanksBefore(std::string_view text, std::size_t position) {
    const std::size_t last = text.substr(0, position).find_last_not_of(kBlanks);
    return {last == text.npos ? 0 : last + 1, position};
}

std::string_view AfterLastLineEnd(std::string_view blanks) {
    return blanks.substr(blanks.find_last_of('\n') + 1);  // npos + 1 is 0
}

std::string LineEndOf(std::string_view text) {
    const std::size_t at = text.find('\n');
    return at != text.npos && at > 0 && text[at - 1] == '\r' ? "\r\n" : "\n";
}

// As the last entry is written.
Style StyleOf(std::string_view text, const xml::Element& entry) {
    const std::string_view before = Of(text, BlanksBefore(text, entry.whole.begin));
    Style style;
    style.separator = before;
    style.indent = AfterLastLineEnd(before);
    if (entry.children.empty()) return style;
    const std::string_view inside =
        Of(text, BlanksBefore(text, entry.children.front()->whole.begin));
    if (inside.find('\n') == inside.npos) return style;
    style.line_end = LineEndOf(text);
    const std::string_view deeper = AfterLastLineEnd(inside);
    style.step = deeper.starts_with(style.indent) ? deeper.substr(style.indent.size()) : "  ";
    return style;
}

// For a file without entries: on lines of their own if the root element's tags are.
Style StyleOfEmpty(std::string_view text, const xml::Element& root) {
    const bool is_one_tag = root.end_tag.IsEmpty();
    const std::string_view looked_at =
        is_one_tag ? text : Of(text, {root.start_tag.end, root.end_tag.begin});
    if (looked_at.find('\n') == looked_at.npos) return {};
    const std::string line_end = LineEndOf(text);
    return {line_end, line_end + "  ", "  ", "  "};
}

std::string Rendered(const Entry& entry, const Style& style) {
    const std::string open_line = style.line_end + style.indent + style.step;
    const std::string inside = style.line_end.empty() ? "" : open_line;
    const auto text = [&inside](const std::string& name, const std::string& value) {
        return inside + "<" + name + ">" + xml::Escaped(value) + "</" + name + ">";
    };
    const auto file = [&inside](const std::string& name, const std::string& uri) {
        return inside + "<" + name + " URI=\"" + xml::Escaped(uri) + "\"/>";
    };
    const std::string name = kEntryElement;
    return "<" + name + ">" + text("SHORT_NAME", entry.short_name) +
           text("DESCRIPTION", entry.description) + text("SUPPLIER_NAME", entry.supplier) +
           file("LIBRARY_FILE", entry.library_uri) +
           file("MODULE_DESCRIPTION_FILE", entry.module_description_uri) +
           file("CABLE_DESCRIPTION_FILE", entry.cable_description_uri) +
           (style.line_end.empty() ? "" : style.line_end + style.indent) + "</" + name + ">";
}

// Which of the entries have this name.
std::vector<const xml::Element*> EntriesNamed(const xml::Document& document,
                                              std::string_view short_name) {
    std::vector<const xml::Element*> found = document.root.ChildrenNamed(kEntryElement);
    std::erase_if(found, [short_name](const xml::Element* entry) {
        return entry->ChildText("SHORT_NAME") != short_name;
    });
    return found;
}

// Strict applications compare the name with the blanks around it.
bool IsWrittenAs(const xml::Element& element, const std::string& short_name) {
    const xml::Element* name = element.FindChild("SHORT_NAME");
    return name != nullptr && name->text == short_name;
}

bool HasSameValues(const Entry& a, const Entry& b) {
    return a.short_name == b.short_name && a.description == b.description &&
           a.supplier == b.supplier && a.library_uri == b.library_uri &&
           a.module_description_uri == b.module_description_uri &&
           a.cable_description_uri == b.cable_description_uri;
}

void Erase(std::string* text, xml::Range range) {
    text->erase(range.begin, range.end - range.begin);
}

// With the blanks before it: those are what WithEntry put there.
void EraseEntry(std::string* text, const xml::Element& entry) {
    Erase(text, {BlanksBefore(*text, entry.whole.begin).begin, entry.whole.end});
}

std::string WithEntryReplaced(std::string text, const std::vector<const xml::Element*>& own,
                              const Entry& entry) {
    const std::string rendered = Rendered(entry, StyleOf(text, *own.front()));
    for (std::size_t i = own.size(); i-- > 1;)
        EraseEntry(&text, *own[i]);
    const xml::Range first = own.front()->whole;
    return text.replace(first.begin, first.end - first.begin, rendered);
}

// <ROOT/> becomes <ROOT>, the entry and </ROOT>.
std::string WithFirstEntryInOneTag(std::string text, const xml::Element& root, const Entry& entry) {
    const Style style = StyleOfEmpty(text, root);
    const std::size_t slash = root.start_tag.end - 2;
    return text.replace(slash, 2,
                        ">" + std::string(kWasEmpty) + style.separator + Rendered(entry, style) +
                            style.line_end + "</" + root.name + ">");
}

std::string WithEntryAdded(const std::string& text, const xml::Element& root, const Entry& entry) {
    const std::vector<const xml::Element*> all = root.ChildrenNamed(kEntryElement);
    if (all.empty() && root.end_tag.IsEmpty()) return WithFirstEntryInOneTag(text, root, entry);
    const Style style = all.empty() ? StyleOfEmpty(text, root) : StyleOf(text, *all.back());
    const std::size_t position = all.empty() ? root.start_tag.end : all.back()->whole.end;
    return std::string(text).insert(position, style.separator + Rendered(entry, style));
}

// Undoes WithFirstEntryInOneTag where nothing but blanks is left.
std::string WithoutMark(std::string text) {
    const xml::Document document = xml::Parse(text);
    const xml::Element& root = document.root;
    if (root.end_tag.IsEmpty()) return text;
    const xml::Range content = {root.start_tag.end, root.end_tag.begin};
    std::string_view inside = Of(text, content);
    if (!inside.starts_with(kWasEmpty)) return text;
    inside.remove_prefix(kWasEmpty.size());
    if (inside.find_first_not_of(kBlanks) == inside.npos) {
        return text.replace(content.begin - 1, root.end_tag.end - content.begin + 1, "/>");
    }
    Erase(&text, {content.begin, content.begin + kWasEmpty.size()});
    return text;
}

}  // namespace

std::string EmptyRootFile() {
    const std::string name = kRootElement;
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<" + name +
           " MVCI_PART2_STANDARD_VERSION=\"2.2.2\">\n</" + name + ">\n";
}

std::string WithEntry(const std::string& text, const Entry& entry) {
    const xml::Document document = xml::Parse(text);
    const std::vector<Entry> listed = EntriesOf(document);
    const std::vector<const xml::Element*> own = EntriesNamed(document, entry.short_name);
    if (own.size() == 1 && IsWrittenAs(*own.front(), entry.short_name) &&
        std::ranges::any_of(listed,
                            [&entry](const Entry& other) { return HasSameValues(other, entry); })) {
        return text;
    }
    std::string result = own.empty() ? WithEntryAdded(text, document.root, entry)
                                     : WithEntryReplaced(text, own, entry);
    xml::Parse(result);  // the encoding that the file declares may not have the entry's characters
    return result;
}

std::string WithoutEntry(const std::string& text, std::string_view short_name) {
    const xml::Document document = xml::Parse(text);
    EntriesOf(document);  // refuses what is no root file
    const std::vector<const xml::Element*> own = EntriesNamed(document, short_name);
    if (own.empty()) return text;
    std::string rest = text;
    for (std::size_t i = own.size(); i-- > 0;)
        EraseEntry(&rest, *own[i]);
    return WithoutMark(std::move(rest));
}

}  // namespace dpdu::root
