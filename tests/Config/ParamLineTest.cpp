#include <Config/ParamLine.h>

#include <gtest/gtest.h>
#include <map>
#include <utility>
#include <vector>

namespace Config {

TEST(ParamLine, ReadsNamedValues) {
    const struct {
        const char* text;
        std::vector<std::pair<const char*, const char*>> params; // a null value: there is none
    } rows[] = {
        {nullptr, {{"a", nullptr}}},
        {" \t\r\n", {{"a", nullptr}}},
        {"a=1", {{"a", "1"}, {"A", nullptr}, {"", nullptr}}},
        {"\n a=1\tb=2\r\n", {{"a", "1"}, {"b", "2"}}},
        {"a= b=2", {{"a", ""}, {"b", "2"}}},
        {"a=x=y", {{"a", "x=y"}}},
        {"a=1 a=2", {{"a", "2"}}},
        {"a=1 a=", {{"a", ""}}},
        {"_k-1.x=y", {{"_k-1.x", "y"}}},
        {"labels=front,back", {{"labels", "front,back"}}},
        {"labels=\"front, back\"", {{"labels", "front, back"}}},
        {"labels='front, back'", {{"labels", "front, back"}}},
        {"a=\"\" b=''", {{"a", ""}, {"b", ""}}},
        {"a=x\"y z\"'w'v", {{"a", "xy zwv"}}},
        {"a=\"it's\" b='say \"x\"'", {{"a", "it's"}, {"b", "say \"x\""}}},
        {"a=\"x\"b=2", {{"a", "xb=2"}, {"b", nullptr}}},
        {R"(a=x\ y b=\"c\\)", {{"a", "x y"}, {"b", "\"c\\"}}},
        {R"(a="\"\n\t\r\q\\" b='\n\')", {{"a", "\"\n\t\rq\\"}, {"b", "\\n\\"}}},
        {"a=\xC3\xA4 b=\xFF", {{"a", "\xC3\xA4"}, {"b", "\xFF"}}},
        {"url=http://host:80/a?b=c&d#e", {{"url", "http://host:80/a?b=c&d#e"}}},
    };
    for (const auto& row : rows) {
        ParamLine line;
        line.setParam("gone", "with the new line");
        ASSERT_NO_THROW(line.setParamLine(row.text)) << row.text;
        EXPECT_EQ(line.getParam("gone", nullptr), nullptr);
        for (const auto& [name, value] : row.params) {
            EXPECT_STREQ(line.getParam(name, nullptr), value)
                << name << " in " << (row.text == nullptr ? "null" : row.text);
            EXPECT_STREQ(line.getParam(name, "default"), value == nullptr ? "default" : value);
        }
    }
}

TEST(ParamLine, NamesTheColumnOfAFault) {
    const struct {
        const char* text;
        std::size_t column;
        const char* message;
    } rows[] = {
        {"=1", 1, "column 1: expected a parameter name, found \"=\""},
        {"good=1 2=3", 8, "column 8: expected a parameter name, found \"2\""},
        {"good=1 \"a\"=3", 8, "column 8: expected a parameter name, found \"\"\""},
        {"good=1 a", 9, "column 9: expected \"=\" after \"a\", found the end of the text"},
        {"good=1 a b=1", 9, "column 9: expected \"=\" after \"a\", found \" \""},
        {"good=1 a =1", 9, "column 9: expected \"=\" after \"a\", found \" \""},
        {"good=1 a,b=1", 9, "column 9: expected \"=\" after \"a\", found \",\""},
        {"good=1 a=\"x", 10, "column 10: the quote \" is never closed"},
        {"good=1 a=\"x\\\"", 10, "column 10: the quote \" is never closed"},
        {"good=1 a='x\" b=1", 10, "column 10: the quote ' is never closed"},
        {"good=1 a=x\\", 11,
         "column 11: expected a character after the backslash, found the end of the text"},
    };
    for (const auto& row : rows) {
        ParamLine line;
        line.setParam("good", "0");
        try {
            line.setParamLine(row.text);
            ADD_FAILURE() << "no exception for " << row.text;
        } catch (const ParamLine::Exception& fault) {
            EXPECT_STREQ(fault.what(), row.message);
            EXPECT_EQ(fault.column(), row.column);
        }
        // What stands before the fault is kept; the faulty parameter is not there by halves.
        EXPECT_STREQ(line.getParam("good", nullptr), row.column > 1 ? "1" : nullptr);
        EXPECT_EQ(line.getParam("a", nullptr), nullptr) << row.text;
    }
}

TEST(ParamLine, TakesNewValuesAndNamesAsTheyAre) {
    ParamLine line;
    line.setParamLine("a=1");
    line.setParam("a", "2 3\"");
    line.setParam("any name =", "4");
    line.setParam("b", nullptr);
    EXPECT_STREQ(line.getParam("a", nullptr), "2 3\"");
    EXPECT_STREQ(line.getParam("any name =", nullptr), "4");
    EXPECT_STREQ(line.getParam("b", nullptr), "");
}

TEST(Base, ReadsYesAndNo) {
    for (const bool other : {true, false}) {
        for (const char* yes : {"true", "yes", "on", "1", "TRUE", "Yes", "oN"}) {
            EXPECT_TRUE(Base::string2Value(yes, other)) << yes;
        }
        for (const char* no : {"false", "no", "off", "0", "FALSE", "No", "oFF"}) {
            EXPECT_FALSE(Base::string2Value(no, other)) << no;
        }
        for (const char* neither :
             {"", " true", "true ", "y", "tru", "truee", "2", "01", "ye\xF3"}) {
            EXPECT_EQ(Base::string2Value(neither, other), other) << neither;
        }
        EXPECT_EQ(Base::string2Value(nullptr, other), other);
    }
}

} // namespace Config
