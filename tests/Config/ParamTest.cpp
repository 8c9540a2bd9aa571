#include <Config/Param.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

using Config::Param;
using Strings = std::vector<std::string>;

constexpr std::array kTable{
    Param{"loud", Param::Type::Flag, "yes", ""}, Param{"port", Param::Type::Number, "7", "", 1, 99},
    Param{"part", Param::Type::Real, "0.5", "", 0, 1},
    Param{"name", Param::Type::Text, "nobody", ""}, Param{"list", Param::Type::List, "", ""}};

TEST(ParamReader, UsesTheDefaultForWhatIsNotSetOrInvalid) {
    Config::ParamBag bag;
    Strings reports;
    const Config::ParamReader read(bag, kTable, [&](const Param& param, const std::string& text) {
        reports.push_back(std::string(param.name) + ": " + text);
    });
    EXPECT_TRUE(read.flag("loud"));
    EXPECT_EQ(read.number("port"), 7);
    EXPECT_EQ(read.text("name"), "nobody");
    for (const char* port : {"0", "100", "1x", "", "99999999999999999999"}) {
        bag.setParam("port", port);
        EXPECT_EQ(read.number("port"), 7) << port;
    }
    bag.setParam("port", "99");
    bag.setParam("loud", "Off");
    bag.setParam("list", " a b ,,c,");
    EXPECT_EQ(read.number("port"), 99);
    EXPECT_FALSE(read.flag("loud"));
    EXPECT_EQ(read.list("list"), (Strings{"a b", "c"}));
    bag.setParam("loud", "perhaps");
    EXPECT_TRUE(read.flag("loud"));
    EXPECT_EQ(reports.size(), 6U);
    for (const char* part : {"0.25", "nan", "1.01", "1e"}) {
        bag.setParam("part", part);
        EXPECT_EQ(read.real("part"), part[2] == '2' ? 0.25 : 0.5) << part;
    }
    EXPECT_EQ(reports.size(), 9U);
    reports.resize(6);
    EXPECT_EQ(
        reports.front(), "port: port=\"0\" is not used: expected a number from 1 to 99; using 7");
    EXPECT_EQ(reports.back(), "loud: loud=\"perhaps\" is not used: expected yes or no; using yes");
}

} // namespace
