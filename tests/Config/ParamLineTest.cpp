#include <Config/ParamLine.h>

#include <gtest/gtest.h>
#include <map>
#include <utility>
#include <vector>

namespace Config {

TEST(ParamLine, ReadsNamedValues) {
    const struct {
        const char* text;
        std::vector<std::pair<const char*, const char*>> params; // a null value: missing
    } rows[] = {
        {nullptr, {{"a", nullptr}}},
        {"\n a=1\tb=\r\n", {{"a", "1"}, {"A", nullptr}, {"b", ""}}},
        {"a=1 a=\"\"", {{"a", ""}}},
        {"_k-1.x=y", {{"_k-1.x", "y"}}},
        {"labels=\"front, back\"", {{"labels", "front, back"}}},
        {"a=x\"y z\"'w'v", {{"a", "xy zwv"}}},
        {"a=\"x\"b=2", {{"a", "xb=2"}, {"b", nullptr}}},
        {R"(a=x\ y b=\"c\\)", {{"a", "x y"}, {"b", "\"c\\"}}},
        {R"(a="\"\n\t\r\q\\" b='\n\')", {{"a", "\"\n\t\rq\\"}, {"b", "\\n\\"}}},
        {"a=\xC3\xA4 b=\xFF", {{"a", "\xC3\xA4"}, {"b", "\xFF"}}},
        {"url=http://host:80/a?b=c&d#e", {{"url", "http://host:80/a?b=c&d#e"}}},
    };
    for (const auto& row : rows) {
        ParamLine line;
        line.setParam("gone", nullptr);
        EXPECT_STREQ(line.getParam("gone", "default"), "");
        ASSERT_NO_THROW(line.setParamLine(row.text)) << row.text;
        EXPECT_EQ(line.getParam("gone", nullptr), nullptr);
        for (const auto& [name, value] : row.params) {
            EXPECT_STREQ(line.getParam(name, nullptr), value) << &row - rows;
        }
    }
}

TEST(ParamLine, NamesTheColumnOfAFault) {
    const std::pair<const char*, std::string> rows[] = {
        {"=1", "column 1: expected a parameter name, found \"=\""},
        {"good=1 2=3", "column 8: expected a parameter name, found \"2\""},
        {"good=1 a", "column 9: expected \"=\" after \"a\", found the end of the text"},
        {"good=1 a b=1", "column 9: expected \"=\" after \"a\", found \" \""},
        {"good=1 a=\"x\\\"", "column 10: the quote \" is never closed"},
        {"good=1 a='x\" b=1", "column 10: the quote ' is never closed"},
        {"good=1 a=\\",
         "column 10: expected a character after the backslash, found the end of the text"},
    };
    for (const auto& [text, message] : rows) {
        ParamLine line;
        try {
            line.setParamLine(text);
            ADD_FAILURE() << "no exception for " << text;
        } catch (const ParamLine::Exception& fault) {
            EXPECT_EQ(fault.what(), message);
            EXPECT_EQ(message.find("column " + std::to_string(fault.column()) + ':'), 0U);
        }
        // Parameters before the error are kept; the invalid one is not stored in part.
        EXPECT_STREQ(line.getParam("good", nullptr), text[0] == 'g' ? "1" : nullptr);
        EXPECT_EQ(line.getParam("a", nullptr), nullptr) << text;
    }
}

TEST(Base, ReadsYesAndNo) {
    for (const char* yes : {"true", "yEs", "oN", "1"}) {
        EXPECT_TRUE(Base::string2Value(yes, false)) << yes;
    }
    for (const char* no : {"False", "no", "OFF", "0"}) {
        EXPECT_FALSE(Base::string2Value(no, true)) << no;
    }
    for (const char* neither : {"", " true", "tru", "truee", "01", "ye\xF3"}) {
        EXPECT_TRUE(Base::string2Value(neither, true)) << neither;
        EXPECT_FALSE(Base::string2Value(neither, false)) << neither;
    }
    EXPECT_TRUE(Base::string2Value(nullptr, true));
}

} // namespace Config
