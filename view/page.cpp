#include <json-c/json.h>

#include <initializer_list>
#include <iostream>
#include <system_error>
#include <utility>

#include "app/outcome.h"
#include "app/show.h"
#include "support/files.h"
#include "view/view.h"

namespace kv1905d {
namespace {

using Replacement = std::pair<std::string_view, std::string_view>;

// Escapes characters that could end the script block or a line of a script in HTML. In JSON they occur only in strings.
constexpr Replacement kEscapes[] = {
    {"<", "\\u003c"}, {">", "\\u003e"}, {"&", "\\u0026"}, {"\xE2\x80\xA8", "\\u2028"}, {"\xE2\x80\xA9", "\\u2029"},
};

std::string escaped(std::string_view json) {
    std::string out;
    while (!json.empty()) {
        Replacement taken{json.substr(0, 1), json.substr(0, 1)};
        for (const Replacement &escape : kEscapes) {
            if (json.starts_with(escape.first)) taken = escape;
        }
        out += taken.second;
        json.remove_prefix(taken.first.size());
    }
    return out;
}

// Lists the marks in the order of the text, each once. Replacements are not searched again.
std::string filled(std::string_view text, std::initializer_list<Replacement> marks) {
    std::string out;
    for (const auto &[mark, value] : marks) {
        const size_t at = text.find(mark);
        out.append(text.substr(0, at)).append(value);
        text.remove_prefix(at + mark.size());
    }
    return out.append(text);
}

}  // namespace

std::string modelText(const std::string &path) {
    return json_object_to_json_string_ext(readModel(path).get(),
                                          JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
}

std::string viewPage(const std::string &model, const std::string &source) {
    return filled(kViewPage, {{"{{connect}}", source.empty() ? "" : "; connect-src 'self'"},
                              {"{{source}}", source},
                              {"{{model}}", escaped(model)}});
}

void writeView(const std::string &dataModel, const std::string &output) {
    const std::string page = viewPage(modelText(dataModel), "");
    if (output.empty()) {
        std::cout << page;
        return;
    }
    try {
        support::replaceFile(output, page, 0644, support::Durable::No);
    } catch (const std::system_error &error) {
        throw Failure(Status::Failure, error.what());
    }
}

}  // namespace kv1905d
