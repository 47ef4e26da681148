// Reads XML into elements that know which bytes of the text they are, so that a change can leave
// every other byte as it is.

#ifndef TOOLS_DPDU_XML_DOCUMENT_H
#define TOOLS_DPDU_XML_DOCUMENT_H

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace dpdu::xml {

// Bytes of the text, the end excluded.
struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;

    bool IsEmpty() const { return begin == end; }
};

struct Attribute {
    std::string name;
    std::string value;
};

struct Element {
    std::string name;
    std::vector<Attribute> attributes;  // in the order of the text
    std::vector<std::unique_ptr<Element>> children;
    std::string text;      // its character data without that of its children; entities resolved
    std::size_t line = 0;  // of its start tag, from 1
    Range whole;           // from the '<' of the start tag to the last '>'
    Range start_tag;
    Range end_tag;  // empty: <name/>

    // Null: there is none.
    const std::string* FindAttribute(std::string_view wanted) const;
    const Element* FindChild(std::string_view wanted) const;  // the first of this name
    // Text of the first child of this name, without blanks and line ends around it; empty: no such
    // child.
    std::string ChildText(std::string_view wanted) const;
    std::vector<const Element*> ChildrenNamed(std::string_view wanted) const;
};

struct Document {
    Element root;
    bool has_byte_order_mark = false;
};

// Why a text is refused, on one line: "line 3: mismatched tag".
class ParseError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws ParseError for a text that is not well-formed or not UTF-8, whatever encoding it declares.
// Nothing outside of the text is read.
Document Parse(std::string_view text);

// The text with & < > and quotes as entities.
std::string Escaped(std::string_view text);

// Without blanks and line ends around it.
std::string_view Trimmed(std::string_view text);

}  // namespace dpdu::xml

#endif  // TOOLS_DPDU_XML_DOCUMENT_H
