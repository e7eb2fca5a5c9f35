#include "utilities/input_file_parser.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/diagnostic_channel.h"
#include "platform/file_stream.h"
#include "platform/file_system_service.h"
#include "platform/text_conversion.h"

namespace install::cpputil {
namespace {

constexpr std::string_view blanks = " \n\r\t\f\v";

DiagnosticChannel channel("install::cpputil::InputFileParser");

std::string_view without_leading_blanks(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(blanks), text.size()));
}

std::string_view without_trailing_blanks(std::string_view text) {
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

std::string_view trimmed(std::string_view text) {
    return without_trailing_blanks(without_leading_blanks(text));
}

template <typename Text>
void lower_ascii_capitals(Text& text) {
    for (auto& unit : text) {
        if (unit >= 'A' && unit <= 'Z') {
            unit = static_cast<typename Text::value_type>(unit - 'A' + 'a');
        }
    }
}

bool isInputLine(std::string_view line) {
    return !line.empty() && line.front() != '#';
}

/// A line cut in two at the first run of one separator. The value is empty where nothing follows.
struct Pieces {
    std::string_view key;
    std::string_view value;
};

Pieces split(std::string_view line, char separator) {
    auto const key_end = std::min(line.find(separator), line.size());
    auto const value_start = std::min(line.find_first_not_of(separator, key_end), line.size());
    return {line.substr(0, key_end), line.substr(value_start)};
}

std::u16string key_of(Pieces const& pieces) {
    auto key = TextConversion::fromUtf8(trimmed(pieces.key));
    lower_ascii_capitals(key);
    return key;
}

std::u16string value_of(Pieces const& pieces) {
    return TextConversion::fromUtf8(trimmed(pieces.value));
}

/// Builds a property map line by line.
///
/// Every product line gives its key the list of all names so far. Copying that list at each of them
/// would take time and memory in the square of their number, although only the last copy for a key
/// can be seen. So a product line leaves an empty list in the map, which no line can leave
/// otherwise, and notes how many names there were; the lists that are still there at the end are
/// filled then.
class PropertyMapBuilder {
public:
    void add_line(std::string_view line) {
        if (line.find('=') != std::string_view::npos) {
            add_assignment(split(line, '='));
        } else if (line.find("product") != std::string_view::npos) {
            add_product(split(line, '.'));
        }
    }

    PropertyMap finish() && {
        // From the last product line back, so that the first note met for a key is its last one.
        for (auto note = product_lines_.rbegin(); note != product_lines_.rend(); ++note) {
            auto* const list = std::get_if<ProductList>(note->value);
            if (list != nullptr && list->empty()) {
                list->assign(products_.begin(), products_.begin() + note->product_count);
            }
        }
        return std::move(map_);
    }

private:
    using ProductList = std::vector<std::u16string>;

    struct ProductLine {
        PropertyValue* value;
        ProductList::difference_type product_count;
    };

    void add_assignment(Pieces const& pieces) {
        auto key = key_of(pieces);
        auto value = value_of(pieces);
        if (!key.empty() && key != u"product") {
            map_.insert_or_assign(std::move(key), std::move(value));
        }
    }

    void add_product(Pieces const& pieces) {
        if (pieces.value.empty()) {
            return;
        }
        auto key = key_of(pieces);
        products_.push_back(value_of(pieces));
        InputFileParser().removeUnderscores(products_.back());
        auto const entry = map_.insert_or_assign(std::move(key), ProductList()).first;
        product_lines_.push_back({&entry->second, std::ssize(products_)});
    }

    PropertyMap map_;
    ProductList products_;
    std::vector<ProductLine> product_lines_;
};

}  // namespace

PropertyMap InputFileParser::parse(std::u16string const& path) {
    return convertInputsToPropertyMap(getUserInputsFromFile(path));
}

PropertyMap InputFileParser::convertInputsToPropertyMap(std::string const& text) {
    PropertyMapBuilder builder;
    std::string_view rest = text;
    for (auto end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
        builder.add_line(rest.substr(0, end));
        rest.remove_prefix(end + 1);
    }
    return std::move(builder).finish();
}

void InputFileParser::updateMap(PropertyMap& map, std::u16string const& key,
                                PropertyValue const& value) {
    map.insert_or_assign(key, value);
}

void InputFileParser::removeUnderscores(std::u16string& text) {
    std::replace(text.begin(), text.end(), u'_', u' ');
}

std::string InputFileParser::getUserInputsFromFile(std::u16string const& path) const {
    Path const file(path);
    if (!FileSystemService::exists(file)) {
        throw std::runtime_error("input file does not exist!");
    }
    InputFileStream stream(file);
    std::string result;
    if (!stream.isOpen()) {
        return result;
    }
    for (std::string_view line; stream.readLine(line);) {
        auto const kept = trimmed(line);
        if (isInputLine(kept)) {
            channel.write(Severity::details, {" line=", kept});
            result.append(kept).append(1, '\n');
        }
    }
    return result;
}

std::string InputFileParser::ltrim(std::string const& text) const {
    return std::string(without_leading_blanks(text));
}

std::string InputFileParser::rtrim(std::string const& text) const {
    return std::string(without_trailing_blanks(text));
}

std::string InputFileParser::trim(std::string const& text) const {
    return std::string(trimmed(text));
}

std::string InputFileParser::stringToLowerCase(std::string const& text) const {
    auto lowered = text;
    lower_ascii_capitals(lowered);
    return lowered;
}

}  // namespace install::cpputil
