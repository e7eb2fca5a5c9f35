// Changes of the log's destination, and calls of the log by a sink.

#include <chrono>
#include <future>

#include "tests/log.h"

namespace install::cpputil::tests {
namespace {

constexpr int records_of_first_destination = 2;
constexpr int records_of_replaced_destination = 7;

class LogDestination : public LogTest {};

TEST_F(LogDestination, IsReplaced) {
    auto const a = path("new/dir/a"), b = path("b");
    enableRecords();
    Logger const outer(name("new/dir//a"));
    EXPECT_THAT(records(), ElementsAre("4:set destinationD/new/dir/a",
                                       "4: destination_file.string()=D/new/dir/a"));
    EXPECT_EQ(destinations(), "new/dir/a|");
    EXPECT_EQ(content("new/dir/a"), "");
    Logger const inner(Path(name("b")));
    EXPECT_EQ(destinations(), "b|new/dir/a");
    Logger const back(get_last_destination());
    EXPECT_EQ(destinations(), "new/dir/a|b");
    Logger const again(get_destination());
    EXPECT_EQ(destinations(), "new/dir/a|new/dir/a");
    std::string const change = "T Reset destination file log ";
    EXPECT_EQ(content("new/dir/a"),
              change + a + " to " + b + "\n" + change + a + " to " + a + "\n");
    EXPECT_EQ(content("b"), change + b + " to " + a + "\n");
}

TEST_F(LogDestination, IsUnsetByAnyLogger) {
    std::optional<Logger> outer(name("a"));
    EXPECT_ANY_THROW({
        Logger const inner(name("b"));
        append_file(name("none"));  // Throws, because the file does not exist.
    });
    EXPECT_EQ(destinations(), "|b");
    enableRecords();
    outer.reset();
    EXPECT_EQ(destinations(), "|b");
    EXPECT_THAT(records(), ElementsAre("4:no destination, keep last \"D/b\""));
    outer.emplace(name("b"));
    logger::detail::forget_last_destination();
    EXPECT_EQ(destinations(), "b|");
}

TEST_F(LogDestination, IsRejectedIfItCannotBeOpened) {
    auto const file = write_file(path("file"), ""), d = path("");
    write_file(path("log"), "");
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0666), 0);
    fs::permissions(path("pipe"), fs::perms::all);
    fs::create_directory(path("closed"));
    deny_access(path("closed"));
    auto const user = as_user();
    struct Row {
        std::string destination;
        char const* kind;      ///< the action that fails, in the exception
        char const* entry;     ///< what cannot be created, in the old log
        std::string reported;  ///< the path in both
    };
    Row const rows[] = {
        {"", "open file", "file", ""},
        {d, "open file", "file", d},
        {d + "closed/x", "open file", "file", d + "closed/x"},
        {d + "pipe", "open file", "file", d + "pipe"},
        {file + "/x/y", "create directory", "folder", file + "/x"},
        {d + "closed/x/y", "create directory", "folder", d + "closed/x"},
    };
    for (auto const& row : rows) {
        auto const error =
            std::string("Install Logger: Cannot ") + row.kind + " \"" + row.reported + "\"";
        auto const entry = std::string("Unable to create specified ") + row.entry +
                           " for installation log " + row.reported;
        auto const set = [&] { Logger const rejected(row.destination); };
        enableRecords();
        EXPECT_EQ(error_text<std::runtime_error>(set), error);
        EXPECT_THAT(sink_.take(), ElementsAre("4:set destination" + row.destination,
                                              "4:set destination:" + error));

        Logger const log(name("log"));
        sink_.take();
        EXPECT_EQ(error_text<std::runtime_error>(set), error);
        EXPECT_THAT(sink_.take(), ElementsAre("4:set destination" + row.destination,
                                              "4: msg=" + entry, "4:set destination:" + error));
        disableRecords();
        EXPECT_EQ(get_destination().string(), name("log"));
        EXPECT_THAT(content("log"), ::testing::EndsWith("T " + entry + "\n"));
    }
    EXPECT_FALSE(exists(fallback_));
    EXPECT_FALSE(exists("velmora_nobody.log"));
    EXPECT_THROW(Logger const log(std::u16string(u"a\0b", 3)), std::invalid_argument);
    EXPECT_THROW(Logger const log(std::string("\xFF")), TextConversionError);
}

TEST_F(LogDestination, IsUnchangedIfASinkThrows) {
    auto const throw_at_each_of = [this](int records) {
        auto const before = destinations();
        for (int number = 0; number != records; ++number) {
            callAtRecord(number, [] { throw std::logic_error("sink"); });
            EXPECT_THROW(Logger const log(name("log")), std::logic_error) << "record " << number;
            EXPECT_EQ(destinations(), before) << "record " << number;
        }
        disableRecords();
    };
    throw_at_each_of(records_of_first_destination);
    std::optional<Logger> old(name("old"));
    throw_at_each_of(records_of_replaced_destination);
    old.reset();
    EXPECT_EQ(destinations(), "|old");
}

class ConcurrentChanges : public LogTest {};

// At each record of one change in turn, another thread makes a second change and logs a message.
// The result must equal one of the two serial orders.
TEST_F(ConcurrentChanges, AreAtomic) {
    for (int number = 0; number != records_of_replaced_destination; ++number) {
        Logger const a(name("a"));
        std::optional<Logger> b, c;
        std::future<void> second;
        callAtRecord(number, [&] {
            second = std::async(std::launch::async, [&] {
                c.emplace(name("c"));
                append_message(u"message");
            });
            // If the log is locked, the second change waits for the first one.
            second.wait_for(std::chrono::milliseconds(20));
        });
        b.emplace(name("b"));
        second.get();
        disableRecords();
        EXPECT_THAT(destinations(), ::testing::AnyOf("c|b", "b|c")) << "record " << number;
        auto const a_to_b = "T Reset destination file log " + path("a") + " to " + path("b") + "\n",
                   a_to_c = "T Reset destination file log " + path("a") + " to " + path("c") + "\n";
        EXPECT_EQ(content("a"), get_destination().string() == name("c") ? a_to_b : a_to_c);
        EXPECT_THAT(content("b") + content("c"), HasSubstr("T message\n"));
        for (std::string const file : {"a", "b", "c"}) {
            fs::remove(path(file));
        }
    }
}

// An argument that refers to the log's state may change while another thread sets a destination.
TEST_F(ConcurrentChanges, AllowPathsOfTheLogAsArguments) {
    auto const repeat = [](auto const& use) {
        for (int count = 0; count != 500; ++count) {
            try {
                use();
            } catch (std::runtime_error const&) {
                // No destination is set at the moment.
            }
        }
    };
    auto const change = [] { Logger const log(u"/dev/null"); };
    auto const set_again = [] { Logger const log(get_last_destination()); };
    auto const copy = [] { append_file(get_destination()); };
    auto const changing = std::async(std::launch::async, [&] { repeat(change); });
    auto const setting = std::async(std::launch::async, [&] { repeat(set_again); });
    repeat(copy);
}

TEST_F(LogDestination, IsReturnedAfterTheEntryInProgress) {
    Logger const log(name("dir/log"));
    fs::remove_all(path("dir"));
    for (auto* const query : {get_destination, get_last_destination}) {
        std::future<void> answer;
        callAtRecord(1, [&] {  // The record of a lost entry, which is written under the lock.
            answer = std::async(std::launch::async, [query] { static_cast<void>(query()); });
            EXPECT_EQ(answer.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
        });
        append_message(u"lost");
        answer.get();
    }
}

class CallingSink : public LogTest {
protected:
    /// Calls \p action with every record, except for the records that the action causes.
    void callAtEachRecord(std::function<void(std::string const& record)> const& action) {
        enableRecords();
        sink_.callForEach([=, is_calling = false](std::string const& record) mutable {
            if (!is_calling) {
                is_calling = true;
                action(record);
                is_calling = false;
            }
        });
    }
};

TEST_F(CallingSink, FindsTheDestinationOfEachRecord) {
    Logger const log(name("a"));
    Path const &destination = get_destination(), &last = get_last_destination();
    Strings states;
    callAtEachRecord([&](std::string const& record) {
        states.push_back(
            shown(record + " | " + destination.narrowName() + " | " + last.narrowName()));
        append_message(std::string("sink"));
    });
    std::optional<Logger> replacement(name("b"));
    replacement.reset();
    disableRecords();
    EXPECT_THAT(states, ElementsAre("4:set destinationD/b | D/a | ",
                                    "4: destination_file.string()=D/a ofile.string()=D/b | D/a | ",
                                    "4: msg=Reset destination file log D/a to D/b | D/a | ",
                                    "8:flush destination | D/a | ",
                                    "4: last_destination_file.string()=D/a | D/a | D/a",
                                    "8:unset destination | D/a | D/a",
                                    "4: destination_file.string()=D/b | D/b | D/a",
                                    "8:flush destination | D/b | D/a",
                                    "4: last_destination_file.string()=D/b | D/b | D/b",
                                    "8:unset destination | D/b | D/b"));
    EXPECT_EQ(destinations(), "|b");
    auto const reset = "Reset destination file log " + path("a") + " to " + path("b");
    EXPECT_THAT(messages(path("a")),
                ElementsAre("sink", "sink", "sink", reset, "sink", "sink", "sink"));
    // Nothing is appended at the record of the new destination.
    EXPECT_THAT(messages(path("b")), ElementsAre("sink", "sink", "sink"));
}

TEST_F(CallingSink, ReplacesTheDestinationWhileItIsReplaced) {
    struct Row {
        char const* record;
        char const* destinations;
    };
    Row const rows[] = {{"4: destination_file.string()=", "b|c"},
                        {"8:flush destination", "b|c"},
                        {"4: last_destination_file.string()=", "b|a"}};
    for (auto const& row : rows) {
        Logger const log(name("a"));
        std::optional<Logger> other;
        callAtEachRecord([&](std::string const& record) {
            if (record.find(row.record) == 0 && !other) {
                other.emplace(name("c"));
            }
        });
        Logger const replacement(name("b"));
        disableRecords();
        EXPECT_EQ(destinations(), row.destinations) << row.record;
    }
}

}  // namespace
}  // namespace install::cpputil::tests
