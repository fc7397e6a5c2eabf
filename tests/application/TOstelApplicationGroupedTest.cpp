// The grouped reading of arrays, held against the plain comparison of everything with everything.
#include <ctime>
#include <random>
#include <utility>

#include "ApplicationTest.h"
#include "TOstelJsonObject.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using TNames = std::vector<std::string>;
using TGroups = std::vector<std::vector<std::pair<std::string, std::string>>>;
using TParams = std::vector<TOstelApplication::TOstelAppParam>;

std::size_t DigitsAt(const std::string& text, std::size_t position) {
    const std::size_t end = text.find_first_not_of("0123456789", position);
    return (end == std::string::npos ? text.size() : end) - position;
}

// Slow and plain.
bool PlainMatch(const std::string& a, const std::string& b) {
    if (a.empty() || b.empty()) {
        return a.empty() && b.empty();
    }
    if (a[0] == b[0]) {
        return PlainMatch(a.substr(1), b.substr(1));
    }
    if (a[0] == '*' && DigitsAt(b, 0) > 0) {
        return PlainMatch(a.substr(1), b.substr(DigitsAt(b, 0)));
    }
    if (b[0] == '*' && DigitsAt(a, 0) > 0) {
        return PlainMatch(a.substr(DigitsAt(a, 0)), b.substr(1));
    }
    return false;
}

TGroups PlainGroups(const TNames& names, const TParams& returned) {
    TGroups groups(names.size());
    for (const auto& param : returned) {
        for (std::size_t i = 0; i < names.size(); ++i) {
            if (PlainMatch(param.name, names[i])) {
                groups[i].emplace_back(param.name, param.value);
            }
        }
    }
    return groups;
}

class TGroupedParamArray : public ApplicationTest {
protected:
    void AnswerWith(const TParams& params) {
        TOstelJsonObject reply;
        m_App.ParamArrayToJson(params, reply);
        m_Dispatcher.Answer("GET_PARAM_ARRAY", reply.EncodeToString(-1));
    }

    TGroups Get(const TNames& names) {
        TGroups groups;
        EXPECT_EQ(m_App.GetParamArray(names, groups), RC_SUCCESS);
        return groups;
    }
};

TEST_F(TGroupedParamArray, AWildcardCollectsInstancesOneAndTwelveButNoLetters) {
    AnswerWith({{"Host.1.Name", "a"},
                {"Host.12.Name", "b"},
                {"Host.x.Name", "c"},
                {"Host.1x.Name", "d"},
                {"Host..Name", "e"},
                {"Host.1.Names", "f"},
                {"Host.1.2.Name", "g"}});
    EXPECT_THAT(Get({"Host.*.Name"}),
                ElementsAre(ElementsAre(Pair("Host.1.Name", "a"), Pair("Host.12.Name", "b"))));
}

TEST_F(TGroupedParamArray, ANameWithoutAWildcardCollectsExactlyItself) {
    AnswerWith({{"Host.1.Name", "a"}, {"Host.12.Name", "b"}, {"Host.1.Name", "c"}});
    EXPECT_THAT(
        Get({"Host.1.Name", "Host.2.Name"}),
        ElementsAre(ElementsAre(Pair("Host.1.Name", "a"), Pair("Host.1.Name", "c")), IsEmpty()));
}

TEST_F(TGroupedParamArray, AWildcardInAReturnedNameMatchesTheRequestedInstances) {
    AnswerWith({{"Host.*.Name", "a"}});
    EXPECT_THAT(
        Get({"Host.1.Name", "Host.*.Name", "Host.x.Name", "Host.22.Name"}),
        ElementsAre(ElementsAre(Pair("Host.*.Name", "a")), ElementsAre(Pair("Host.*.Name", "a")),
                    IsEmpty(), ElementsAre(Pair("Host.*.Name", "a"))));
}

TEST_F(TGroupedParamArray, WildcardsOnBothSidesMatchInTheirPlaces) {
    AnswerWith({{"A.*.B.2", "a"}, {"A.1.B.*", "b"}});
    EXPECT_THAT(Get({"A.7.B.*", "A.*.B.*", "A.1.B.2"}),
                ElementsAre(ElementsAre(Pair("A.*.B.2", "a")),
                            ElementsAre(Pair("A.*.B.2", "a"), Pair("A.1.B.*", "b")),
                            ElementsAre(Pair("A.*.B.2", "a"), Pair("A.1.B.*", "b"))));
}

TEST_F(TGroupedParamArray, WildcardsMayStandFirstLastAndTwice) {
    AnswerWith({{"1.A.2.B.3", "v"}, {"10.A.20.B.30", "w"}, {"1.A.2.B.", "x"}});
    EXPECT_THAT(
        Get({"*.A.2.B.3", "1.A.2.B.*", "*.A.*.B.*"}),
        ElementsAre(ElementsAre(Pair("1.A.2.B.3", "v")), ElementsAre(Pair("1.A.2.B.3", "v")),
                    ElementsAre(Pair("1.A.2.B.3", "v"), Pair("10.A.20.B.30", "w"))));
}

TEST_F(TGroupedParamArray, OneParameterLandsInEveryListThatAsksForIt) {
    AnswerWith({{"Host.1.Name", "a"}});
    EXPECT_THAT(Get({"Host.1.Name", "Host.*.Name", "Host.1.Name"}),
                ElementsAre(SizeIs(1), SizeIs(1), SizeIs(1)));
}

TEST_F(TGroupedParamArray, AFailureLeavesTheResultsAlone) {
    m_Dispatcher.Answer("GET_PARAM_ARRAY", R"({"PARAMS":[]})", 4);
    TGroups groups = {{{"n", "v"}}};
    EXPECT_EQ(m_App.GetParamArray({"A", "B"}, groups), RC_INVALID_PARAM_NAME);
    EXPECT_THAT(groups, ElementsAre(ElementsAre(Pair("n", "v"))));
    m_Dispatcher.Answer("GET_PARAM_ARRAY", "{");
    EXPECT_EQ(m_App.GetParamArray({"A", "B"}, groups), RC_RUNTIME_ERROR);
    EXPECT_THAT(groups, ElementsAre(ElementsAre(Pair("n", "v"))));
}

// Kept: a second reading adds to the lists of the first.
TEST_F(TGroupedParamArray, ResultsAreResizedAndAddedTo) {
    AnswerWith({{"A", "1"}});
    TGroups groups = {{{"A", "0"}}, {}, {{"x", "x"}}};
    EXPECT_EQ(m_App.GetParamArray({"A", "B"}, groups), RC_SUCCESS);
    EXPECT_THAT(groups, ElementsAre(ElementsAre(Pair("A", "0"), Pair("A", "1")), IsEmpty()));
}

TEST_F(TGroupedParamArray, NoNamesGiveNoLists) {
    AnswerWith({{"A", "1"}});
    EXPECT_THAT(Get({}), IsEmpty());
}

TEST_F(TGroupedParamArray, GivesWhatThePlainComparisonGivesOnRandomNames) {
    const std::uint32_t seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto pick = [&random](const std::vector<std::string>& from) {
        return from[std::uniform_int_distribution<std::size_t>(0, from.size() - 1)(random)];
    };
    // Few letters, so that names meet often; the joints put digits and wildcards side by side.
    const std::vector<std::string> parts = {"A", "1", "12", "*", "A1", "*A", "1*", "**", ""};
    const std::vector<std::string> joints = {".", ".", ".", ""};
    const auto makeName = [&] {
        std::string name = pick(parts);
        for (int i = std::uniform_int_distribution<int>(0, 3)(random); i > 0; --i) {
            name += pick(joints) + pick(parts);
        }
        return name;
    };
    std::size_t matches = 0;
    for (int round = 0; round < 200; ++round) {
        TNames names(20);
        TParams returned(20);
        for (std::string& name : names) {
            name = makeName();
        }
        for (std::size_t i = 0; i < returned.size(); ++i) {
            returned[i] = {makeName(), std::to_string(i)};
        }
        AnswerWith(returned);
        const TGroups expected = PlainGroups(names, returned);
        ASSERT_EQ(Get(names), expected) << "round " << round;
        for (const auto& group : expected) {
            matches += group.size();
        }
    }
    EXPECT_GT(matches, 1000U);
}

double ThreadSeconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// A hundred times the names may cost a hundred times the work, not ten thousand times.
TEST_F(TGroupedParamArray, TheWorkGrowsWithTheNumberOfNames) {
    const auto measure = [this](std::size_t count) {
        TNames names;
        TParams returned;
        for (std::size_t i = 0; i < count; ++i) {
            const std::string name = "Device.Hosts.Host." + std::to_string(i) + ".HostName";
            names.push_back(name);
            returned.push_back({name, "value"});
        }
        names.emplace_back("Device.Hosts.Host.*.HostName");
        AnswerWith(returned);
        const double start = ThreadSeconds();
        const TGroups groups = Get(names);
        const double seconds = ThreadSeconds() - start;
        EXPECT_EQ(groups.size(), count + 1);
        EXPECT_EQ(groups.back().size(), count);
        EXPECT_EQ(groups[count / 2].size(), 1U);
        return seconds;
    };
    measure(1000);
    const double small = measure(1000);
    const double large = measure(100000);
    EXPECT_LT(large, small * 1000);
}

// Names that differ in their numbers alone: each "*" is held against its own host's parameters.
TEST_F(TGroupedParamArray, TheWorkGrowsWithTheNumberOfNamesWithWildcards) {
    const auto measure = [this](std::size_t count) {
        TNames names;
        TParams returned;
        for (std::size_t i = 0; i < count; ++i) {
            const std::string host = "Device.Hosts.Host." + std::to_string(i) + ".IPv4Address.";
            names.push_back(host + "*.IPAddress");
            returned.push_back({host + "1.IPAddress", "192.0.2.1"});
        }
        AnswerWith(returned);
        const double start = ThreadSeconds();
        const TGroups groups = Get(names);
        const double seconds = ThreadSeconds() - start;
        EXPECT_THAT(groups, Each(SizeIs(1)));
        return seconds;
    };
    measure(500);
    const double small = measure(500);
    const double large = measure(20000);
    EXPECT_LT(large, small * 400);
}

// A reply may hold any name; that of many numbers costs no more than its length.
TEST_F(TGroupedParamArray, TheWorkGrowsWithTheLengthOfAName) {
    const auto measure = [this](std::size_t count) {
        std::string name = "Device";
        for (std::size_t i = 0; i < count; ++i) {
            name += ".1";
        }
        AnswerWith({{name, "value"}});
        const double start = ThreadSeconds();
        const TGroups groups = Get({"Device.*", "Device.Hosts.Host.*.HostName"});
        const double seconds = ThreadSeconds() - start;
        EXPECT_THAT(groups, ElementsAre(IsEmpty(), IsEmpty()));
        return seconds;
    };
    measure(12500);
    const double small = measure(12500);
    const double large = measure(500000);
    EXPECT_LT(large, small * 400);
}

}  // namespace
