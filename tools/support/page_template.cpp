#include "page_template.h"

#include <kainjow/mustache.hpp>

namespace {

using kainjow::mustache::data;

// JSON as the template library's values: numbers as JSON writes them.
data to_data(const nlohmann::json &value) {
    switch (value.type()) {
        case nlohmann::json::value_t::object: {
            data object;
            for (const auto &[name, field] : value.items()) {
                object.set(name, to_data(field));
            }
            return object;
        }
        case nlohmann::json::value_t::array: {
            data list(data::type::list);
            for (const nlohmann::json &element : value) {
                list.push_back(to_data(element));
            }
            return list;
        }
        case nlohmann::json::value_t::string:
            return data(value.get<std::string>());
        case nlohmann::json::value_t::boolean:
            return data(value.get<bool>());
        case nlohmann::json::value_t::null:
            return data(false);
        default:
            return data(value.dump());
    }
}

}  // namespace

std::string render_page(const std::string &page, const nlohmann::json &values, std::string *error) {
    kainjow::mustache::mustache tmpl(page);
    if (!tmpl.is_valid()) {
        *error = tmpl.error_message();
        return "";
    }
    return tmpl.render(to_data(values));
}
