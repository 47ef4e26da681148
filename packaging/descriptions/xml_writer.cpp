#include "xml_writer.h"

#include "xml/document.h"

namespace tarvik::descriptions {
XmlWriter::XmlWriter(std::string_view root, Attributes attributes) {
    text_ = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    Open(root, attributes);
}

void XmlWriter::Open(std::string_view name, Attributes attributes) {
    Tag(name, attributes, ">");
    text_ += '\n';
    open_.emplace_back(name);
}

void XmlWriter::Close() {
    const std::string name = std::move(open_.back());
    open_.pop_back();
    Indent();
    text_ += "</" + name + ">\n";
}

void XmlWriter::Line(std::string_view name, std::string_view text) {
    Tag(name, {}, ">");
    text_ += dpdu::xml::Escaped(text) + "</" + std::string(name) + ">\n";
}

void XmlWriter::Empty(std::string_view name, Attributes attributes) {
    Tag(name, attributes, "/>");
    text_ += '\n';
}

std::string XmlWriter::Text() && {
    Close();
    return std::move(text_);
}

void XmlWriter::Indent() { text_.append(2 * open_.size(), ' '); }

void XmlWriter::Tag(std::string_view name, Attributes attributes, std::string_view end) {
    Indent();
    text_ += "<" + std::string(name);
    for (const auto& [key, value] : attributes)
        text_ += " " + std::string(key) + "=\"" + dpdu::xml::Escaped(value) + "\"";
    text_ += end;
}

}  // namespace tarvik::descriptions
