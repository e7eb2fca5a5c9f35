#include "utilities/input_file_parser.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/file_stream.h"
#include "platform/file_system_service.h"
#include "platform/library_channel.h"
#include "platform/text_conversion.h"

namespace install::cpputil {
namespace {

constinit LibraryChannel channel;
LibraryChannel::Lifetime const channel_lifetime(channel, "install::cpputil::InputFileParser");

constexpr bool is_blank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view without_leading_blanks(std::string_view text) {
    auto const first = std::find_if_not(text.begin(), text.end(), is_blank);
    return text.substr(static_cast<std::size_t>(first - text.begin()));
}

std::string_view without_trailing_blanks(std::string_view text) {
    auto const last = std::find_if_not(text.rbegin(), text.rend(), is_blank);
    return text.substr(0, static_cast<std::size_t>(text.rend() - last));
}

std::string_view trimmed(std::string_view text) {
    return without_trailing_blanks(without_leading_blanks(text));
}

constexpr char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isInputLine(std::string_view line) {
    return !line.empty() && line.front() != '#';
}

/// The two parts of a line around the first run of one separator, trimmed. `ended` tells whether
/// nothing follows that run.
struct Pieces {
    std::string_view key;
    std::string_view value;
    bool ended;
};

Pieces split(std::string_view line, char separator) {
    auto const key_end = std::min(line.find(separator), line.size());
    auto const value_start = std::min(line.find_first_not_of(separator, key_end), line.size());
    return {trimmed(line.substr(0, key_end)), trimmed(line.substr(value_start)),
            value_start == line.size()};
}

/// Gathers the entries of lines, which must outlive it, and makes the map of them at the end.
///
/// Only the last line for a key can be seen, so nothing is stored before all are known: copying the
/// list of products at every product line, as the format has it, would take time and memory in the
/// square of their number. And entries that come in the order of their keys make a large map several
/// times as fast.
class PropertyMapBuilder {
public:
    /// \param size  how long all lines together are at most
    explicit PropertyMapBuilder(std::size_t size) { keys_.reserve(size); }

    void add_line(std::string_view line) {
        if (line.find('=') != std::string_view::npos) {
            add_assignment(split(line, '='));
        } else if (line.find("product") != std::string_view::npos) {
            add_product(split(line, '.'));
        }
    }

    PropertyMap finish() && {
        std::sort(entries_.begin(), entries_.end());
        PropertyMap map;
        for (auto entry = entries_.begin(); entry != entries_.end(); ++entry) {
            auto const next = std::next(entry);
            if (next == entries_.end() || next->key != entry->key) {
                map.emplace_hint(map.end(), TextConversion::fromUtf8(entry->key), value_of(*entry));
            }
        }
        return map;
    }

private:
    struct Entry {
        std::string_view key;
        std::string_view value;
        // How many products the list has up to this line; 0 for an assignment.
        std::size_t product_count;

        /// By keys, and for one key in the order of the lines.
        bool operator<(Entry const& other) const {
            auto const order = key.compare(other.key);
            return order != 0 ? order < 0 : value.data() < other.value.data();
        }
    };

    void add_assignment(Pieces const& pieces) {
        auto const key = lowered_key(pieces.key);
        TextConversion::checkUtf8(pieces.value);
        if (!key.empty() && key != "product") {
            entries_.push_back({key, pieces.value, 0});
        }
    }

    void add_product(Pieces const& pieces) {
        if (pieces.ended) {
            return;
        }
        auto const key = lowered_key(pieces.key);
        TextConversion::checkUtf8(pieces.value);
        products_.push_back(pieces.value);
        entries_.push_back({key, pieces.value, products_.size()});
    }

    std::string_view lowered_key(std::string_view text) {
        TextConversion::checkUtf8(text);
        auto const start = keys_.size();
        keys_ += text;
        auto* const key = keys_.data() + start;
        std::transform(key, key + text.size(), key, lowered);
        return std::string_view(keys_).substr(start);
    }

    PropertyValue value_of(Entry const& entry) const {
        if (entry.product_count == 0) {
            return TextConversion::fromUtf8(entry.value);
        }
        std::vector<std::u16string> names;
        names.reserve(entry.product_count);
        for (std::size_t index = 0; index != entry.product_count; ++index) {
            InputFileParser().removeUnderscores(
                names.emplace_back(TextConversion::fromUtf8(products_[index])));
        }
        return names;
    }

    // The keys, one behind the other, in their room for all that there can be: entries refer to it.
    std::string keys_;
    std::vector<Entry> entries_;
    // What the product lines name, in their order.
    std::vector<std::string_view> products_;
};

}  // namespace

PropertyMap InputFileParser::parse(std::u16string const& path) {
    return convertInputsToPropertyMap(getUserInputsFromFile(path));
}

PropertyMap InputFileParser::convertInputsToPropertyMap(std::string const& text) {
    PropertyMapBuilder builder(text.size());
    std::string_view rest = text;
    for (auto end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
        builder.add_line(rest.substr(0, end));
        rest.remove_prefix(end + 1);
    }
    return std::move(builder).finish();
}

void InputFileParser::updateMap(PropertyMap& map, std::u16string const& key,
                                PropertyValue const& value) {
    // Assigned, not copy-constructed: the copy constructor of this variant in libstdc++ 12 destroys
    // an incomplete list if memory runs out.
    PropertyValue copy;
    copy = value;
    map.insert_or_assign(key, std::move(copy));
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
    while (auto const line = stream.readLine()) {
        auto const kept = trimmed(*line);
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
    auto result = text;
    std::transform(result.begin(), result.end(), result.begin(), lowered);
    return result;
}

}  // namespace install::cpputil
