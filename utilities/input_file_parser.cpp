#include "utilities/input_file_parser.h"

#include <algorithm>
#include <array>
#include <boost/sort/spreadsort/string_sort.hpp>
#include <cstddef>
#include <functional>
#include <iterator>
#include <memory>
#include <memory_resource>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/file_system_service.h"
#include "platform/internal/file_stream.h"
#include "platform/internal/library_channel.h"
#include "platform/text_conversion.h"

namespace install::cpputil {
namespace {

constinit LibraryChannel channel;
LibraryChannel::Lifetime const channel_lifetime(channel, "install::cpputil::InputFileParser");

constexpr bool is_blank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view without_leading_blanks(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

std::string_view without_trailing_blanks(std::string_view text) {
    while (!text.empty() && is_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string_view trimmed(std::string_view text) {
    return without_trailing_blanks(without_leading_blanks(text));
}

constexpr char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

void replace_underscores(std::u16string& text) {
    std::replace(text.begin(), text.end(), u'_', u' ');
}

bool isInputLine(std::string_view line) {
    return !line.empty() && line.front() != '#';
}

/// The two parts of a line around the first run of one separator, trimmed.
struct Pieces {
    std::string_view key;
    // Absent if nothing follows the separators.
    std::optional<std::string_view> value;
};

/// \param key_end  the position of the first \p separator of \p line, or its size
Pieces split(std::string_view line, std::size_t key_end, char separator) {
    auto const value_start = line.find_first_not_of(separator, key_end);
    return {trimmed(line.substr(0, key_end)),
            value_start == std::string_view::npos
                ? std::nullopt
                : std::optional(trimmed(line.substr(value_start)))};
}

/// Memory for the temporary data of a call: on the stack first, then on the heap. Without the stack
/// buffer, a file of 60 lines takes 1.3 times as long, because malloc consolidates its free lists
/// to serve a block above 1 KiB. Unlike this class, `std::pmr::monotonic_buffer_resource` does not
/// return heap blocks before it is destroyed, so that growing vectors would double the memory of a
/// large file.
class Workspace final : public std::pmr::memory_resource {
private:
    void* do_allocate(std::size_t size, std::size_t alignment) override {
        void* block = stack_.data() + used_;
        auto room = stack_.size() - used_;
        if (std::align(alignment, size, block, room) == nullptr) {
            return std::pmr::new_delete_resource()->allocate(size, alignment);
        }
        used_ = stack_.size() - room + size;
        return block;
    }

    void do_deallocate(void* block, std::size_t size, std::size_t alignment) override {
        // Stack blocks are not reused.
        if (std::less<>()(block, stack_.data()) ||
            !std::less<>()(block, stack_.data() + stack_.size())) {
            std::pmr::new_delete_resource()->deallocate(block, size, alignment);
        }
    }

    bool do_is_equal(std::pmr::memory_resource const& other) const noexcept override {
        return this == &other;
    }

    std::array<std::byte, 16384> stack_;
    std::size_t used_ = 0;
};

/// Collects the entries of lines, which must outlive it, and returns their map at the end.
///
/// Only the last line for a key determines its value, so no value is stored before all lines are
/// known: copying the list of products at every product line would need quadratic time and memory.
class PropertyMapBuilder {
public:
    /// \param size  an upper bound of the total length of the lines
    PropertyMapBuilder(std::size_t size, std::pmr::memory_resource& memory)
        : keys_(&memory), entries_(&memory), products_(&memory) {
        constexpr std::size_t usual_line_count = 64;
        keys_.reserve(size);
        entries_.reserve(usual_line_count);
    }

    void addLine(std::string_view line) {
        if (auto const key_end = line.find('='); key_end != std::string_view::npos) {
            addAssignment(split(line, key_end, '='));
        } else if (line.find("product") != std::string_view::npos) {
            addProduct(split(line, std::min(line.find('.'), line.size()), '.'));
        }
    }

    PropertyMap finish() && {
        // For many keys, inserting in order is several times faster.
        sort();
        PropertyMap map;
        for (auto entry = entries_.begin(); entry != entries_.end(); ++entry) {
            auto const next = std::next(entry);
            if (next == entries_.end() || next->key != entry->key) {
                map.emplace_hint(map.end(), TextConversion::fromUtf8(entry->key), valueOf(*entry));
            }
        }
        return map;
    }

private:
    struct Entry {
        std::string_view key;
        // The value of an assignment, or the number of products up to a product line.
        std::variant<std::string_view, std::size_t> value;
        // The number of entries on earlier lines.
        std::size_t position;

        bool operator<(Entry const& other) const {
            auto const order = key.compare(other.key);
            return order != 0 ? order < 0 : position < other.position;
        }

        std::string_view prefix() const { return key.substr(0, 32); }
    };

    /// Sorts the entries by key, and those of one key by line.
    void sort() {
        // Product lines of one key are already sorted.
        if (std::is_sorted(entries_.begin(), entries_.end())) {
            return;
        }
        sortByPrefix();
        for (auto first = entries_.begin(); first != entries_.end();) {
            auto const last = std::find_if(first, entries_.end(), [&](Entry const& entry) {
                return entry.prefix() != first->prefix();
            });
            std::sort(first, last);
            first = last;
        }
    }

    /// Sorts the entries by the prefix of their keys. For many keys, a radix sort takes less than
    /// half the time of `std::sort`, but its recursion is as deep as the compared text is long.
    void sortByPrefix() {
        boost::sort::spreadsort::string_sort(
            entries_.begin(), entries_.end(),
            [](Entry const& entry, std::size_t index) {
                return static_cast<unsigned char>(entry.key[index]);
            },
            [](Entry const& entry) { return entry.prefix().size(); }, std::less<>());
    }

    void addAssignment(Pieces const& pieces) {
        auto const key = loweredKey(pieces.key);
        auto const value = pieces.value.value_or(std::string_view());
        TextConversion::checkUtf8(value);
        if (!key.empty() && key != "product") {
            entries_.push_back({key, value, entries_.size()});
        }
    }

    void addProduct(Pieces const& pieces) {
        if (!pieces.value) {
            return;
        }
        auto const key = loweredKey(pieces.key);
        TextConversion::checkUtf8(*pieces.value);
        products_.push_back(*pieces.value);
        entries_.push_back({key, products_.size(), entries_.size()});
    }

    std::string_view loweredKey(std::string_view text) {
        TextConversion::checkUtf8(text);
        auto const start = keys_.size();
        keys_ += text;
        auto* const key = keys_.data() + start;
        std::transform(key, key + text.size(), key, lowered);
        return {key, text.size()};
    }

    PropertyValue valueOf(Entry const& entry) const {
        if (auto const* const text = std::get_if<std::string_view>(&entry.value)) {
            return TextConversion::fromUtf8(*text);
        }
        auto const count = std::get<std::size_t>(entry.value);
        std::vector<std::u16string> names;
        names.reserve(count);
        for (std::size_t index = 0; index != count; ++index) {
            replace_underscores(names.emplace_back(TextConversion::fromUtf8(products_[index])));
        }
        return names;
    }

    // The keys, one after another. Never reallocated, because entries refer to them.
    std::pmr::string keys_;
    std::pmr::vector<Entry> entries_;
    // The names on the product lines, in their order.
    std::pmr::vector<std::string_view> products_;
};

/// Appends the input lines of the file at \p path to \p text, each followed by a line feed.
template <typename String>
void append_input_lines(std::u16string const& path, String& text) {
    Path const file(path);
    if (!FileSystemService::exists(file)) {
        throw std::runtime_error("input file does not exist!");
    }
    InputFileStream stream(file);
    if (!stream.isOpen()) {
        return;
    }
    while (auto const line = stream.readLine()) {
        auto const kept = trimmed(*line);
        if (isInputLine(kept)) {
            channel.write(Severity::details, {" line=", kept});
            text.append(kept).append(1, '\n');
        }
    }
}

PropertyMap map_of(std::string_view text, std::pmr::memory_resource& memory) {
    PropertyMapBuilder builder(text.size(), memory);
    for (auto end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        builder.addLine(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return std::move(builder).finish();
}

}  // namespace

PropertyMap InputFileParser::parse(std::u16string const& path) {
    Workspace workspace;
    std::pmr::string text(&workspace);
    append_input_lines(path, text);
    return map_of(text, workspace);
}

PropertyMap InputFileParser::convertInputsToPropertyMap(std::string const& text) {
    Workspace workspace;
    return map_of(text, workspace);
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
    replace_underscores(text);
}

std::string InputFileParser::getUserInputsFromFile(std::u16string const& path) const {
    std::string text;
    append_input_lines(path, text);
    return text;
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
