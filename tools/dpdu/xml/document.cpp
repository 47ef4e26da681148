#include "xml/document.h"

#include <expat.h>

#include <algorithm>
#include <exception>
#include <limits>

namespace dpdu::xml {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\r\n";
// Deeper than any file that people write; reading and destruction are recursive.
constexpr std::size_t kLargestDepth = 200;

struct FreeParser {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, FreeParser>;

std::string AtLine(XML_Size line, const std::string& reason) {
    return "line " + std::to_string(line) + ": " + reason;
}

// `name` is in capitals.
bool IsName(std::string_view encoding, std::string_view name) {
    return std::ranges::equal(encoding, name, [](char a, char b) {
        return (a >= 'a' && a <= 'z' ? static_cast<char>(a - 'a' + 'A') : a) == b;
    });
}

bool IsUtf8Name(std::string_view encoding) {
    return IsName(encoding, "UTF-8") || IsName(encoding, "UTF8");
}

// A part of UTF-8, which other readers take at its word.
bool IsAsciiName(std::string_view encoding) {
    return IsName(encoding, "US-ASCII") || IsName(encoding, "ASCII");
}

bool IsAscii(std::string_view text) {
    return std::ranges::all_of(text,
                               [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

// Builds the elements from what the parser reports. Exceptions do not pass through the parser,
// which is written in C: the first one is kept and ends the parsing.
class Builder {
public:
    explicit Builder(std::string_view text) : text_(text), parser_(XML_ParserCreate("UTF-8")) {
        if (parser_ == nullptr) throw std::bad_alloc();
        XML_SetUserData(parser_.get(), this);
        XML_SetXmlDeclHandler(parser_.get(), OnDeclaration);
        XML_SetElementHandler(parser_.get(), OnStart, OnEnd);
        XML_SetCharacterDataHandler(parser_.get(), OnText);
        XML_SetSkippedEntityHandler(parser_.get(), OnSkippedEntity);
    }

    Element Build() {
        const auto size = static_cast<int>(text_.size());
        const XML_Status status = XML_Parse(parser_.get(), text_.data(), size, XML_TRUE);
        if (failure_) std::rethrow_exception(failure_);
        if (status != XML_STATUS_OK) {
            throw ParseError(AtLine(XML_GetCurrentLineNumber(parser_.get()),
                                    XML_ErrorString(XML_GetErrorCode(parser_.get()))));
        }
        return std::move(root_);
    }

private:
    static void OnDeclaration(void* self, const XML_Char*, const XML_Char* encoding, int) {
        static_cast<Builder*>(self)->Guard(&Builder::Declare, encoding);
    }
    static void OnStart(void* self, const XML_Char* name, const XML_Char** attributes) {
        static_cast<Builder*>(self)->Guard(&Builder::Start, name, attributes);
    }
    static void OnEnd(void* self, const XML_Char*) {
        static_cast<Builder*>(self)->Guard(&Builder::End);
    }
    static void OnText(void* self, const XML_Char* text, int length) {
        static_cast<Builder*>(self)->Guard(
            &Builder::AddText, std::string_view(text, static_cast<std::size_t>(length)));
    }
    static void OnSkippedEntity(void* self, const XML_Char* name, int) {
        static_cast<Builder*>(self)->Guard(&Builder::RefuseEntity, name);
    }

    template <typename... Parameters>
    void Guard(void (Builder::*action)(Parameters...), Parameters... values) {
        if (failure_) return;
        try {
            (this->*action)(values...);
        } catch (...) {
            failure_ = std::current_exception();
            XML_StopParser(parser_.get(), XML_FALSE);
        }
    }

    [[noreturn]] void Refuse(const std::string& reason) const {
        throw ParseError(AtLine(XML_GetCurrentLineNumber(parser_.get()), reason));
    }

    void Declare(const XML_Char* encoding) {
        if (encoding == nullptr || IsUtf8Name(encoding)) return;
        if (!IsAsciiName(encoding)) {
            Refuse("the file is in " + std::string(encoding) + ", not in UTF-8");
        }
        if (!IsAscii(text_)) Refuse("the file is declared as ASCII, which it is not");
    }

    void Start(const XML_Char* name, const XML_Char** attributes) {
        if (open_.size() >= kLargestDepth) Refuse("too many elements inside each other");
        Element* element = &root_;
        if (!open_.empty()) {
            open_.back()->children.push_back(std::make_unique<Element>());
            element = open_.back()->children.back().get();
        }
        element->name = name;
        element->line = XML_GetCurrentLineNumber(parser_.get());
        element->start_tag = CurrentRange();
        if (!text_.substr(element->start_tag.begin).starts_with("<" + element->name)) {
            Refuse("<" + element->name + "> comes from an entity, which cannot be edited");
        }
        for (; *attributes != nullptr; attributes += 2)
            element->attributes.push_back({attributes[0], attributes[1]});
        open_.push_back(element);
    }

    // The parser reports the end of <name/> with no bytes of its own.
    void End() {
        Element* element = open_.back();
        open_.pop_back();
        const Range here = CurrentRange();
        const bool is_own_tag = here.begin >= element->start_tag.end && !here.IsEmpty();
        element->end_tag =
            is_own_tag ? here : Range{element->start_tag.end, element->start_tag.end};
        element->whole = {element->start_tag.begin, element->end_tag.end};
    }

    void AddText(std::string_view text) {
        if (!open_.empty()) open_.back()->text += text;
    }

    // One of an external document type, which is not read: what it stands for is unknown.
    void RefuseEntity(const XML_Char* name) {
        Refuse("the entity &" + std::string(name) + "; is not defined in the file");
    }

    Range CurrentRange() const {
        const auto begin = static_cast<std::size_t>(XML_GetCurrentByteIndex(parser_.get()));
        return {begin, begin + static_cast<std::size_t>(XML_GetCurrentByteCount(parser_.get()))};
    }

    std::string_view text_;
    Parser parser_;
    Element root_;
    std::vector<Element*> open_;
    std::exception_ptr failure_;
};

}  // namespace

const std::string* Element::FindAttribute(std::string_view wanted) const {
    for (const Attribute& attribute : attributes) {
        if (attribute.name == wanted) return &attribute.value;
    }
    return nullptr;
}

const Element* Element::FindChild(std::string_view wanted) const {
    for (const auto& child : children) {
        if (child->name == wanted) return child.get();
    }
    return nullptr;
}

std::string Element::ChildText(std::string_view wanted) const {
    const Element* child = FindChild(wanted);
    return child == nullptr ? "" : std::string(Trimmed(child->text));
}

std::vector<const Element*> Element::ChildrenNamed(std::string_view wanted) const {
    std::vector<const Element*> found;
    for (const auto& child : children) {
        if (child->name == wanted) found.push_back(child.get());
    }
    return found;
}

Document Parse(std::string_view text) {
    if (text.size() > std::numeric_limits<int>::max()) throw ParseError("the file is too large");
    if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF")) {
        throw ParseError("line 1: the file is in UTF-16, not in UTF-8");
    }
    return {Builder(text).Build(), text.starts_with(kByteOrderMark)};
}

std::string Escaped(std::string_view text) {
    std::string escaped;
    for (const char byte : text) {
        switch (byte) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&apos;";
                break;
            default:
                escaped += byte;
        }
    }
    return escaped;
}

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace dpdu::xml
