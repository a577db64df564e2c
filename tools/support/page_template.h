// Pages made from a template kept as HTML for editing: Mustache tags filled
// from a JSON object. {{name}} is the value, HTML-escaped here and nowhere
// else; {{#name}}...{{/name}} is shown for a true value or once for each
// element of a list (whose fields then fill its tags), {{^name}}...{{/name}}
// when the value is false, null or an empty list.
#ifndef FACEDET_TOOLS_PAGE_TEMPLATE_H
#define FACEDET_TOOLS_PAGE_TEMPLATE_H

#include <string>

#include <nlohmann/json.hpp>

// The page, or an empty text with *error when the template is malformed.
std::string render_page(const std::string &page, const nlohmann::json &values, std::string *error);

#endif
