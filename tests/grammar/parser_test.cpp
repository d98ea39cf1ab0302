// The definition-string parser: node forms, blanks, modes, HIDE, help texts, every token kind,
// and malformed strings reported with their position.
#include <gtest/gtest.h>

#include <string>

#include "cmd_grammar.h"
#include "grammar_fixtures.h"

using namespace ndplat;

namespace {

constexpr CliModeMask bits(std::initializer_list<CliMode> modes)
{
    CliModeMask m = 0;
    for (CliMode x : modes)
        m = static_cast<CliModeMask>(m | cli_mode_bit(x));
    return m;
}

DefParseResult mustParse(const std::string &def)
{
    DefParseResult r = parse_definition(def);
    EXPECT_TRUE(r.ok) << def << "\n at " << r.errorPosition << ": " << r.error;
    return r;
}

} // namespace

TEST(GrammarParser, RowOneIsAChainOfThreeKeywords)
{
    DefParseResult r = mustParse(fx::kRow1);
    ASSERT_EQ(r.nodes.size(), 1u);
    const DefNode &nd = r.nodes[0];
    EXPECT_EQ(nd.kind, TokenKind::Keyword);
    EXPECT_EQ(nd.word, "nd");
    EXPECT_EQ(nd.modes, bits({CliMode::IF, CliMode::PORTIF}));
    EXPECT_EQ(nd.flags, 0u);
    EXPECT_FALSE(nd.hidden);
    EXPECT_EQ(nd.help, "Neighbor discovery");
    EXPECT_EQ(nd.position, 0u);
    ASSERT_EQ(nd.children.size(), 1u);
    const DefNode &proxy = nd.children[0];
    EXPECT_EQ(proxy.word, "proxy");
    EXPECT_EQ(proxy.help, "Normal nd proxy");
    EXPECT_EQ(proxy.position, 37u);
    ASSERT_EQ(proxy.children.size(), 1u);
    EXPECT_EQ(proxy.children[0].word, "enable");
    EXPECT_EQ(proxy.children[0].help, "Normal nd proxy");
    EXPECT_TRUE(proxy.children[0].children.empty());
}

TEST(GrammarParser, HideOnEveryNodeAndEmptyHelp)
{
    DefParseResult r = mustParse(fx::kRow3);
    ASSERT_EQ(r.nodes.size(), 1u);
    const DefNode *n = &r.nodes[0];
    const char *words[] = {"ipv6", "nd", "proxy"};
    const char *helps[] = {"", "", "Normal nd proxy"};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(n->word, words[i]);
        EXPECT_TRUE(n->hidden);
        EXPECT_EQ(n->help, helps[i]);
        EXPECT_EQ(n->modes, bits({CliMode::IF, CliMode::MIF, CliMode::PORTIF}));
        if (i < 2) {
            ASSERT_EQ(n->children.size(), 1u);
            n = &n->children[0];
        }
    }
    EXPECT_TRUE(n->children.empty());
}

TEST(GrammarParser, BlankSpellingsGiveTheSameTree)
{
    DefParseResult a = mustParse("nd(CONF,0,'Neighbor discovery'){fast-response(CONF,0,'x')}");
    DefParseResult b = mustParse("nd(CONF, 0, 'Neighbor discovery') { fast-response(CONF, 0, 'x') }");
    DefParseResult c = mustParse("nd( CONF | EN ,\t0 ,'Neighbor discovery'){fast-response(CONF,0,'x')}");
    for (const DefParseResult *r : {&a, &b, &c}) {
        ASSERT_EQ(r->nodes.size(), 1u);
        EXPECT_EQ(r->nodes[0].word, "nd");
        EXPECT_EQ(r->nodes[0].help, "Neighbor discovery");
        ASSERT_EQ(r->nodes[0].children.size(), 1u);
        EXPECT_EQ(r->nodes[0].children[0].word, "fast-response");
    }
    EXPECT_EQ(c.nodes[0].modes, bits({CliMode::CONF, CliMode::EN}));
    mustParse(fx::kBlankAfterBrace);
    mustParse(fx::kRow21);
}

TEST(GrammarParser, QuotedStringsOfTheNdTableParse)
{
    for (const char *def : {fx::kRow1, fx::kRow3, fx::kRow5, fx::kRow7, fx::kRow9, fx::kRow21, fx::kRow32,
                            fx::kRow35, fx::kRow36, fx::kRow44})
        mustParse(def);
}

TEST(GrammarParser, AlternativesInOrder)
{
    DefParseResult r = mustParse(fx::kRow35);
    const DefNode &nd = r.nodes[0].children[0];
    std::vector<std::string> words;
    for (const DefNode &c : nd.children)
        words.push_back(c.word);
    EXPECT_EQ(words, (std::vector<std::string>{"config", "event", "forward", "packet", "serve", "error", "all"}));
    DefParseResult neg = mustParse(fx::kRow36);
    EXPECT_EQ(neg.nodes[0].modes, cli_mode_bit(CliMode::CONF));
    EXPECT_EQ(neg.nodes[0].children[0].modes, cli_mode_bit(CliMode::EN));
    EXPECT_EQ(neg.nodes[0].children[0].children[0].children[4].help, "Nd show debug");
}

TEST(GrammarParser, TopLevelAlternatives)
{
    DefParseResult r = mustParse("a(EN,0,'1'), b(EN,0,'2'),c(EN,0,'3')");
    ASSERT_EQ(r.nodes.size(), 3u);
    EXPECT_EQ(r.nodes[2].word, "c");
    EXPECT_EQ(r.nodes[2].position, 25u);
}

TEST(GrammarParser, EveryModeName)
{
    const char *names[] = {"CONF", "EN", "IF", "PORTIF", "MIF", "VLAN", "SUPERVLAN", "PORT", "LINK_AGGREGATION", "VXLAN", "STD"};
    std::string all;
    for (size_t i = 0; i < kCliModeCount; ++i) {
        EXPECT_STREQ(cli_mode_name(static_cast<CliMode>(i)), names[i]);
        EXPECT_EQ(cli_mode_from_name(names[i]), static_cast<CliMode>(i));
        all += (i ? "|" : "") + std::string(names[i]);
    }
    EXPECT_FALSE(cli_mode_from_name("conf").has_value());
    DefParseResult r = mustParse("x(" + all + ",0,'')");
    EXPECT_EQ(r.nodes[0].modes, (1u << kCliModeCount) - 1);
}

TEST(GrammarParser, EveryTokenKind)
{
    DefParseResult r = mustParse(
        "t(EN,0,''){_1_4094_(EN,0,'r'),_IPV6ADDR_(EN,0,'a'),_IPV6PREFIX_(EN,0,'p'),_MACAddress_(EN,0,'m'),"
        "_CONFPORTLIST_(EN,0,'l'),_CONFPORTAGGNUM_(EN,0,'g'),_WORD_(EN,0,'w'),_LINE_(EN,0,'n'),"
        "_PASSWORD_(EN,0,'s'),_STRING_(EN,0,'t'),_ipAddress_(EN,0,'i'),_CR_(EN,0,''),_0_2147483_(EN,0,''),"
        "_30_2147483_(EN,0,''),_0_1_(EN,0,''),_1_1000000_(EN,0,''),_-5_5_(EN,0,'')}");
    const auto &c = r.nodes[0].children;
    ASSERT_EQ(c.size(), 17u);
    TokenKind kinds[] = {TokenKind::Range,    TokenKind::Ipv6Addr, TokenKind::Ipv6Prefix,   TokenKind::MacAddress,
                         TokenKind::ConfPortList, TokenKind::ConfPortAggNum, TokenKind::Word, TokenKind::Line,
                         TokenKind::Password, TokenKind::String,   TokenKind::IpAddress,    TokenKind::Cr};
    for (size_t i = 0; i < 12; ++i)
        EXPECT_EQ(c[i].kind, kinds[i]) << i;
    EXPECT_EQ(c[0].low, 1);
    EXPECT_EQ(c[0].high, 4094);
    EXPECT_EQ(c[12].low, 0);
    EXPECT_EQ(c[12].high, 2147483);
    EXPECT_EQ(c[13].low, 30);
    EXPECT_EQ(c[14].high, 1);
    EXPECT_EQ(c[15].high, 1000000);
    EXPECT_EQ(c[16].low, -5);
    EXPECT_EQ(c[16].high, 5);
    const char *shown[] = {"<1-4094>", "X:X::X:X", "X:X::X:X/M", "H.H.H", "PORTLIST", "<1-128>",
                           "WORD",     "LINE",     "PASSWORD",   "STRING", "A.B.C.D", "<cr>"};
    for (size_t i = 0; i < 12; ++i)
        EXPECT_EQ(token_display(c[i]), shown[i]);
    EXPECT_EQ(token_display(c[16]), "<-5-5>");
}

TEST(GrammarParser, HelpTextsKeepEveryCharacter)
{
    DefParseResult r = mustParse(fx::kModifiers);
    const DefNode &bar = r.nodes[0];
    EXPECT_EQ(bar.word, "|");
    EXPECT_EQ(bar.help, "Output modifiers");
    const DefNode &redirect = bar.children[3];
    EXPECT_EQ(redirect.word, "redirect");
    EXPECT_EQ(redirect.children[0].children[0].help, "Destination file name,such as \"/flash/test\"");
    DefParseResult mlag = mustParse(fx::kRow44);
    EXPECT_EQ(mlag.nodes[0].children[0].children[0].help, " ");
    EXPECT_EQ(mlag.nodes[0].children[0].children[0].children[2].help, " ");
}

TEST(GrammarParser, ModifierSubtreeOrder)
{
    DefParseResult r = mustParse(fx::kModifiers);
    std::vector<std::string> words;
    for (const DefNode &c : r.nodes[0].children)
        words.push_back(c.word);
    EXPECT_EQ(words, (std::vector<std::string>{"begin", "include", "exclude", "redirect"}));
    EXPECT_EQ(r.nodes[0].modes, cli_mode_bit(CliMode::EN));
    EXPECT_EQ(r.nodes[0].children[0].modes, bits({CliMode::STD, CliMode::EN}));
}

TEST(GrammarParser, VxlanTableAndTestCommandsParse)
{
    for (const std::string &def : fx::kVxlan)
        mustParse(def);
    mustParse(fx::kSuppressTest);
    mustParse(fx::kNoSuppressTest);
    mustParse(fx::kNbrTest);
    mustParse(fx::noNbrTest());
    mustParse(fx::showFastResponse());
    mustParse(fx::showSubscriber());
}

TEST(GrammarParser, SurplusClosingBraceAtTheEndIsTolerated)
{
    DefParseResult r = mustParse(fx::kVxlan[0]);
    ASSERT_EQ(r.nodes.size(), 1u);
    EXPECT_EQ(r.nodes[0].word, "ipv6");
    const DefNode &value = r.nodes[0].children[0].children[0].children[0].children[0];
    EXPECT_EQ(value.kind, TokenKind::Range);
    EXPECT_EQ(value.low, 30);
    EXPECT_EQ(value.high, 2147483);
    EXPECT_EQ(value.help, "Seconds(default:300)");
}

TEST(GrammarParser, HiddenVariantsWithAndWithoutBlanks)
{
    for (const char *def : {"nd(VXLAN, 0,HIDE, 'x')", "nd(VXLAN, 0, HIDE,'x')", "nd(VXLAN,0,HIDE,'x')",
                            "nd(VXLAN, 0, HIDE, 'x')"}) {
        DefParseResult r = mustParse(def);
        EXPECT_TRUE(r.nodes[0].hidden) << def;
        EXPECT_EQ(r.nodes[0].help, "x");
    }
}

struct Malformed {
    const char *definition;
    size_t position;
    const char *error;
};

class GrammarParserMalformed : public ::testing::TestWithParam<Malformed> {};

TEST_P(GrammarParserMalformed, ReportsThePosition)
{
    const Malformed &m = GetParam();
    DefParseResult r = parse_definition(m.definition);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.errorPosition, m.position) << m.definition;
    EXPECT_EQ(r.error, m.error) << m.definition;
    EXPECT_TRUE(r.nodes.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, GrammarParserMalformed,
    ::testing::Values(Malformed{"", 0, "expected a word"},
                      Malformed{"nd", 2, "expected '('"},
                      Malformed{"nd(CONF,0,'x'", 13, "expected ')'"},
                      Malformed{"nd(CONFIG,0,'x')", 3, "expected a mode"},
                      Malformed{"nd(CONF|,0,'x')", 8, "expected a mode"},
                      Malformed{"nd(conf,0,'x')", 3, "expected a mode"},
                      Malformed{"nd(CONF 0,'x')", 8, "expected ','"},
                      Malformed{"nd(CONF,x,'x')", 8, "expected a flags number"},
                      Malformed{"nd(CONF,0,x)", 10, "expected a quoted help text"},
                      Malformed{"nd(CONF,0,HIDE'x')", 14, "expected ','"},
                      Malformed{"nd(CONF,0,'x)", 10, "unterminated help text"},
                      Malformed{"nd(CONF,0,'x'){", 15, "expected a word"},
                      Malformed{"nd(CONF,0,'x'){}", 15, "expected a word"},
                      Malformed{"nd(CONF,0,'x'){a(CONF,0,'')", 27, "expected '}'"},
                      Malformed{"nd(CONF,0,'x'),", 15, "expected a word"},
                      Malformed{"nd(CONF,0,'x') junk", 15, "unexpected text after the last node"},
                      Malformed{"nd(CONF,0,'x'){a(CONF,0,'')}}x", 29, "unexpected text after the last node"},
                      Malformed{"_FOO_(CONF,0,'')", 0, "unknown parameter token"},
                      Malformed{"a(EN,0,''){_5_1_(CONF,0,'')}", 11, "unknown parameter token"},
                      Malformed{"_1__(CONF,0,'')", 0, "unknown parameter token"},
                      Malformed{"a(EN,0,''){_CR_(EN,0,''){b(EN,0,'')}}", 24, "_CR_ cannot have children"},
                      Malformed{"(EN,0,'')", 0, "expected a word"},
                      Malformed{"a(EN,0,'') , ,b(EN,0,'')", 13, "expected a word"}));

TEST(GrammarParser, TruncationsFailWithinTheStringUnlessComplete)
{
    std::vector<std::string> all(fx::kVxlan.begin(), fx::kVxlan.end());
    all.push_back(fx::kRow36);
    all.push_back(fx::kModifiers);
    all.push_back(fx::kNbrTest);
    for (const std::string &def : all) {
        for (size_t n = 0; n < def.size(); ++n) {
            std::string cut = def.substr(0, n);
            DefParseResult r = parse_definition(cut);
            // A cut is complete only right after a node at the top level (the first VXLAN
            // string also right before its surplus closing brace).
            int depth = 0;
            bool quoted = false;
            for (char ch : cut) {
                if (ch == '\'')
                    quoted = !quoted;
                else if (!quoted && ch == '{')
                    ++depth;
                else if (!quoted && ch == '}')
                    --depth;
            }
            size_t last = cut.find_last_not_of(' ');
            bool complete = !quoted && depth == 0 && last != std::string::npos && (cut[last] == ')' || cut[last] == '}');
            EXPECT_EQ(r.ok, complete) << cut;
            if (!complete) {
                EXPECT_LE(r.errorPosition, cut.size());
                EXPECT_FALSE(r.error.empty());
            }
        }
    }
}

TEST(GrammarParser, ArbitraryBytesNeverCrash)
{
    std::string def = fx::kRow21;
    uint32_t seed = 12345;
    size_t failures = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string mutated = def;
        for (int k = 0; k < 3; ++k) {
            seed = seed * 1103515245u + 12345u;
            size_t at = (seed >> 8) % mutated.size();
            seed = seed * 1103515245u + 12345u;
            mutated[at] = static_cast<char>((seed >> 16) & 0xFF);
        }
        DefParseResult r = parse_definition(mutated);
        if (!r.ok) {
            ++failures;
            EXPECT_LE(r.errorPosition, mutated.size());
        }
    }
    EXPECT_GT(failures, 0u);
}

TEST(GrammarParser, DeepNestingIsRefused)
{
    std::string def;
    for (int i = 0; i < 200; ++i)
        def += "a(EN,0,''){";
    def += "b(EN,0,'')";
    for (int i = 0; i < 200; ++i)
        def += "}";
    DefParseResult r = parse_definition(def);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, "nesting too deep");
    std::string shallow;
    for (int i = 0; i < 20; ++i)
        shallow += "a(EN,0,''){";
    shallow += "b(EN,0,'')" + std::string(20, '}');
    EXPECT_TRUE(parse_definition(shallow).ok);
}
