#pragma once

// Precompiled for tools. The JSON library is all templates: what every file would instantiate for
// itself is instantiated once, in json.cpp.

#include <nlohmann/json.hpp>

#include "standard.h"

// json.cpp defines this as "template".
#ifndef TARVIK_JSON_INSTANCE
#define TARVIK_JSON_INSTANCE extern template
#endif

TARVIK_JSON_INSTANCE class nlohmann::basic_json<>;
TARVIK_JSON_INSTANCE class nlohmann::detail::serializer<nlohmann::json>;
TARVIK_JSON_INSTANCE class nlohmann::detail::json_sax_dom_parser<nlohmann::json>;
TARVIK_JSON_INSTANCE class nlohmann::detail::json_sax_dom_callback_parser<nlohmann::json>;
TARVIK_JSON_INSTANCE class nlohmann::detail::lexer<
    nlohmann::json, nlohmann::detail::iterator_input_adapter<std::string::const_iterator>>;
TARVIK_JSON_INSTANCE class nlohmann::detail::parser<
    nlohmann::json, nlohmann::detail::iterator_input_adapter<std::string::const_iterator>>;
TARVIK_JSON_INSTANCE class nlohmann::detail::lexer<nlohmann::json,
                                                   nlohmann::detail::input_stream_adapter>;
TARVIK_JSON_INSTANCE class nlohmann::detail::parser<nlohmann::json,
                                                    nlohmann::detail::input_stream_adapter>;
TARVIK_JSON_INSTANCE class std::map<std::string, nlohmann::json, std::less<>>;
TARVIK_JSON_INSTANCE class std::vector<nlohmann::json>;
