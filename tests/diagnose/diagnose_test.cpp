// Hidden diagnose commands: the requests, the dispatch and the paging of the service's dump
// file. Each test gives the emulated switch a file system root of its own, so that the fixed
// dump file name never collides with another test process.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "diagnose/nd_cli_diagnose.h"
#include "ndplat_vxlan.h"
#include "test_support.h"

namespace {

class DiagnoseTest : public ndtest::PlatformTest {
protected:
    void SetUp() override
    {
        ndtest::PlatformTest::SetUp();
        char dir[] = "/tmp/nd-diagnose-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        root_ = dir;
        std::filesystem::create_directories(root_ + "/tmp");
        ndplat::files_root_set(root_);
    }
    void TearDown() override
    {
        ndtest::PlatformTest::TearDown();
        std::filesystem::remove_all(root_);
    }

    std::string dumpPath() const { return root_ + "/tmp/.nd_diagnose"; }
    void writeDump(const std::string &text) const
    {
        std::ofstream(dumpPath(), std::ios::binary) << text;
    }
    bool dumpExists() const { return std::filesystem::exists(dumpPath()); }

    // Runs a handler with the service answering with nothing; returns what it printed.
    std::string run(SHELL_CMD_FN fn, const std::vector<std::string> &words, uint32_t status = 13)
    {
        ndplat::CmfResponse r;
        r.status = status;
        ndplat::cmf_script(r);
        ndtest::Stdout out;
        ndtest::run_handler(fn, words);
        return out.take();
    }

    static void expectU32(const ndplat::CmfItem &item, uint32_t type, uint32_t value)
    {
        EXPECT_EQ(item.type, type);
        EXPECT_EQ(item.length, 4u);
        EXPECT_EQ(item.bytes, ndtest::u32_bytes(value));
    }

    std::string root_;
};

TEST_F(DiagnoseTest, ShowAndClearStatSendTheSameItemsWithTheirKinds)
{
    EXPECT_EQ(run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "stat"}), "");
    EXPECT_EQ(run(ndCliDiagnoseClear, {"clear", "diagnose", "nd", "stat"}), "");
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(requests[i].cmdCode, 29u);
        EXPECT_EQ(requests[i].service, "ipv6");
        ASSERT_EQ(requests[i].items.size(), 1u);
        expectU32(requests[i].items[0], 13, 4);
    }
    EXPECT_EQ(requests[0].optKind, 0u);
    EXPECT_EQ(requests[0].argIndex, 1u);
    EXPECT_EQ(requests[1].optKind, 4u);
    EXPECT_EQ(requests[1].argIndex, 2u);
    // Show and clear never start the service.
    EXPECT_TRUE(ndplat::trace_of("DCM_Start").empty());
}

TEST_F(DiagnoseTest, GlobalAclIsCaseSensitive)
{
    run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "global", "acl"});
    run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "global", "ACL"});
    run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "GLOBAL"});
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 3u);
    const uint32_t kinds[3] = {3, 0, 0};
    for (size_t i = 0; i < 3; ++i) {
        ASSERT_EQ(requests[i].items.size(), 2u) << i;
        expectU32(requests[i].items[0], 13, kinds[i]);
        expectU32(requests[i].items[1], 2, 0);
        EXPECT_EQ(requests[i].optKind, 0u);
        EXPECT_EQ(requests[i].argIndex, 2u);
    }
}

TEST_F(DiagnoseTest, InterfaceNeighborIsCaseInsensitive)
{
    run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "interface", "NEIGHBOR"});
    run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "interface"});
    run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "interface", "neighbor", "x"});
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 3u);
    const uint32_t kinds[3] = {5, 0, 0};
    for (size_t i = 0; i < 3; ++i) {
        ASSERT_EQ(requests[i].items.size(), 1u);
        expectU32(requests[i].items[0], 13, kinds[i]);
    }
}

TEST_F(DiagnoseTest, RequestErrorIsPrintedAndTheFileStillShown)
{
    writeDump("line one\n");
    EXPECT_EQ(run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "stat"}, 46),
              "\nThe switch of global snooping is not enable.\nline one\n");
    EXPECT_FALSE(dumpExists());
}

TEST_F(DiagnoseTest, ClearErrorIsPrintedAndNoFileShown)
{
    writeDump("kept\n");
    EXPECT_EQ(run(ndCliDiagnoseClear, {"clear", "diagnose", "nd", "stat"}, 21), "\nCmf receive response message failed.");
    EXPECT_TRUE(dumpExists());
    EXPECT_TRUE(ndplat::trace_of("__UMV2L_fopen").empty());
}

TEST_F(DiagnoseTest, ClearOfAnotherWordDoesNothing)
{
    ndtest::Stdout out;
    EXPECT_NE(ndtest::run_handler(ndCliDiagnoseClear, {"clear", "diagnose", "nd", "other"}), 0);
    EXPECT_EQ(out.take(), "");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(DiagnoseTest, DumpIsPagedPrintedAndDeleted)
{
    writeDump("first\nsecond\nthird");
    EXPECT_EQ(run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "stat"}), "\nfirst\nsecond\nthird");
    EXPECT_FALSE(dumpExists());
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreOrientOutput").size(), 1u);
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreBreakOutput").size(), 3u);
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreFormatOutput").size(), 1u);
    EXPECT_EQ(ndplat::trace_of("__UMV2L_fopen"),
              std::vector<std::string>{"__UMV2L_fopen(\"/tmp/.nd_diagnose\", \"r\")"});
    EXPECT_EQ(ndplat::trace_of("__UMV2L_unlink"), std::vector<std::string>{"__UMV2L_unlink(\"/tmp/.nd_diagnose\")"});
    EXPECT_EQ(ndplat::trace_of("__UMV2L_fclose").size(), 1u);
    auto gets = ndplat::trace_of("__UMV2L_fgets");
    ASSERT_EQ(gets.size(), 4u);
    EXPECT_EQ(gets[0], "__UMV2L_fgets(ptr, 1024, ptr)");
}

TEST_F(DiagnoseTest, MissingDumpPrintsNothingMore)
{
    EXPECT_EQ(run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "stat"}), "");
    EXPECT_TRUE(ndplat::trace_of("SHELL_MoreOrientOutput").empty());
    EXPECT_TRUE(ndplat::trace_of("__UMV2L_unlink").empty());
    EXPECT_EQ(ndCliDiagnoseDump(), 0);
}

TEST_F(DiagnoseTest, LongLinesArePrintedInPiecesEachCountedByThePager)
{
    std::string longLine(2500, 'x');
    for (size_t i = 0; i < longLine.size(); ++i)
        longLine[i] = static_cast<char>('a' + i % 26);
    writeDump(longLine + "\n");
    EXPECT_EQ(run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "stat"}), "\n" + longLine + "\n");
    // 1023 + 1023 + 455 characters (the last piece with its line break).
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreBreakOutput").size(), 3u);
}

TEST_F(DiagnoseTest, QuittingThePagerDeletesTheFileAndTheNextShowAsksAgain)
{
    writeDump("page 1\npage 2\npage 3\n");
    ndplat::pager_quit_after(1);
    EXPECT_EQ(run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "stat"}), "\npage 1\n");
    EXPECT_FALSE(dumpExists());
    EXPECT_EQ(ndplat::trace_of("__UMV2L_unlink").size(), 1u);

    EXPECT_EQ(run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "stat"}), "");
    EXPECT_EQ(ndplat::cmf_requests().size(), 2u);
}

TEST_F(DiagnoseTest, FormatResultIsReturned)
{
    writeDump("x\n");
    ndplat::fault_inject("SHELL_MoreFormatOutput", 9);
    ndplat::cmf_script(ndplat::CmfResponse{});
    ndtest::Stdout out;
    EXPECT_EQ(ndtest::run_handler(ndCliDiagnoseShow, {"show", "diagnose", "nd", "stat"}), 9);
}

// The session cache keeps its own tables for the life of the process once first used; they
// are made before the test counts its allocations.
class DiagnoseLocalDbmTest : public DiagnoseTest {
protected:
    void SetUp() override
    {
        nd_CliDbmSessPull(7, 6);
        nd_CliDbmSessFree(7, 6);
        DiagnoseTest::SetUp();
    }
};

TEST_F(DiagnoseLocalDbmTest, LocalDbmListsTheCacheThenTheDump)
{
    ASSERT_EQ(nd_CliDbmSessPull(7, 6), 0);
    std::string listingText;
    {
        ndtest::Stdout cache;
        nd_CliDbmDiagnoseShow();
        listingText = cache.take();
    }
    EXPECT_NE(listingText.find("sessId:7, valueType:6"), std::string::npos) << listingText;
    writeDump("service text\n");
    ndtest::Stdout out;
    ndtest::run_handler(ndCliDiagnoseShow, {"show", "diagnose", "nd", "local-dbm"});
    EXPECT_EQ(out.take(), listingText + "\nservice text\n");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    nd_CliDbmSessFree(7, 6);
}

TEST_F(DiagnoseTest, VxlanIsHandedToTheVxlanDiagnoseAndTheDumpFollows)
{
    writeDump("vxlan dump\n");
    EXPECT_EQ(run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "VXLAN", "12", "host"}), "\nvxlan dump\n");
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].cmdCode, 29u);
    ASSERT_EQ(requests[0].items.size(), 2u);
    expectU32(requests[0].items[0], 13, 1);
    expectU32(requests[0].items[1], 2, 12);
    // The VXLAN path never asks about the service process.
    EXPECT_TRUE(ndplat::trace_of("DCM_Query").empty());
}

TEST_F(DiagnoseTest, UnknownWordOnlyPrintsTheDump)
{
    writeDump("only\n");
    EXPECT_EQ(run(ndCliDiagnoseShow, {"show", "diagnose", "nd", "other"}), "\nonly\n");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(DiagnoseTest, IssuShowDispatchesOnWordFiveOrFour)
{
    ndtest::Stdout out;
    ndtest::run_handler(ndCliDiagnoseIssuShow, {"show", "diagnose", "nd", "vxlan", "5", "issu", "host"});
    ndtest::run_handler(ndCliDiagnoseIssuShow, {"show", "diagnose", "nd", "vxlan", "ISSU", "host"});
    EXPECT_EQ(out.take(), "\nTotal issu host entry: 0\nTotal issu host entry: 0");
    EXPECT_EQ(ndplat::trace_of("DBM_Open").size(), 2u);
    ndtest::Stdout none;
    EXPECT_NE(ndtest::run_handler(ndCliDiagnoseIssuShow, {"show", "diagnose", "nd", "vxlan", "5", "other", "host"}), 0);
    EXPECT_EQ(none.take(), "");
    EXPECT_EQ(ndplat::trace_of("DBM_Open").size(), 2u);
}

TEST_F(DiagnoseTest, DefinitionsAreBalancedTrees)
{
    for (const char *def : {ND_CLI_DIAGNOSE_SHOW_DEF, ND_CLI_DIAGNOSE_CLEAR_DEF, ND_CLI_DIAGNOSE_ISSU_DEF}) {
        std::string d = def;
        EXPECT_EQ(std::count(d.begin(), d.end(), '{'), std::count(d.begin(), d.end(), '}')) << d;
    }
    std::string show = ND_CLI_DIAGNOSE_SHOW_DEF;
    EXPECT_EQ(show.rfind("show(EN, 0, '') {diagnose(", 0), 0u);
    for (const char *word : {"vxlan(", "_0_2147483_(", "host(", "mac(", "global(", "acl(", "stat(", "interface(",
                             "neighbor(", "local-dbm("})
        EXPECT_NE(show.find(word), std::string::npos) << word;
}

} // namespace
