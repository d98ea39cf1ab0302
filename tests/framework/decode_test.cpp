// What the platform's decoder answers once a response's items are used up, and what the
// exchange makes of items shorter than the record it reads.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "nd_cli_internal.h"
#include "ndplat_service.h"
#include "test_support.h"

namespace {

using ndplat::CmfItem;
using ndplat::CmfResponse;
using ndtest::PlatformTest;
using ndtest::Stdout;

class DecodeTest : public PlatformTest {
protected:
    // The results of decoding one scripted response to the end (at most `limit` calls).
    static std::vector<uint32_t> decodeAll(const CmfResponse &response, size_t limit = 8)
    {
        ndplat::cmf_script(response);
        CMF_CONTEXT context = CMF_ClientContextInit("ipv6", 234, 1);
        std::vector<uint32_t> results;
        if (!context)
            return results;
        CMF_ClientRequestSend(context);
        CMF_ClientResponseRecv(context);
        for (size_t i = 0; i < limit; ++i) {
            uint32_t type = 0, length = 0;
            void *value = nullptr;
            uint32_t r = CMF_ClientParamDecode(context, &type, &length, &value);
            results.push_back(r);
            if (r != 0)
                break;
        }
        CMF_ClientContextClose(context);
        return results;
    }

    static CmfResponse withEnd(uint32_t endStatus, size_t items)
    {
        CmfResponse r;
        r.status = 13;
        r.endStatus = endStatus;
        for (size_t i = 0; i < items; ++i)
            r.items.push_back(CmfItem::u32(14, 1));
        return r;
    }

    static std::string showDebug(const CmfResponse &response, uint32_t *result = nullptr)
    {
        ndplat::cmf_script(response);
        NdCliParam block;
        memset(&block, 0, sizeof block);
        nd_CliParamInit(&block, "show", 14);
        uint32_t zero = 0;
        nd_CliParamSet(&block, &zero, sizeof zero, 11, 1);
        Stdout out;
        uint32_t r = ndCliParamProc(&block);
        if (result)
            *result = r;
        return out.take();
    }
};

TEST_F(DecodeTest, AnEndStatusOfZeroOnTheWireIsAnsweredAsNothingMore)
{
    EXPECT_EQ(decodeAll(withEnd(0, 2)), (std::vector<uint32_t>{0, 0, 13}));
    EXPECT_EQ(decodeAll(withEnd(0, 0)), (std::vector<uint32_t>{13}));
}

TEST_F(DecodeTest, FailureStatusesAtTheEndPassAsTheyAre)
{
    EXPECT_EQ(decodeAll(withEnd(7, 1)), (std::vector<uint32_t>{0, 7}));
    EXPECT_EQ(decodeAll(withEnd(1, 0)), (std::vector<uint32_t>{1}));
    EXPECT_EQ(decodeAll(withEnd(0x5700000Du, 1)), (std::vector<uint32_t>{0, 0x5700000Du}));
}

TEST_F(DecodeTest, TheRealEndStatusesPassUnchanged)
{
    EXPECT_EQ(decodeAll(withEnd(13, 1)), (std::vector<uint32_t>{0, 13}));
    EXPECT_EQ(decodeAll(withEnd(6, 0)), (std::vector<uint32_t>{6}));
    EXPECT_EQ(decodeAll(withEnd(6, 2)), (std::vector<uint32_t>{0, 0, 6}));
}

TEST_F(DecodeTest, AnItemIsNeverReportedLongerThanTheBytesItHolds)
{
    CmfResponse response;
    CmfItem item = CmfItem::u32(14, 0x3F);
    item.length = 64; // says more than it carries
    response.items.push_back(item);
    ndplat::cmf_script(response);
    CMF_CONTEXT context = CMF_ClientContextInit("ipv6", 234, 1);
    ASSERT_NE(context, nullptr);
    CMF_ClientRequestSend(context);
    CMF_ClientResponseRecv(context);
    uint32_t type = 0, length = 0;
    void *value = nullptr;
    EXPECT_EQ(CMF_ClientParamDecode(context, &type, &length, &value), 0u);
    EXPECT_EQ(type, 14u);
    EXPECT_EQ(length, 4u);
    EXPECT_NE(value, nullptr);
    CMF_ClientContextClose(context);
}

TEST_F(DecodeTest, ADebugMaskShorterThanFourBytesIsShownAsNoMask)
{
    CmfResponse response;
    const uint8_t two[2] = {0xFF, 0xFF};
    response.items.push_back(CmfItem::of(14, two, sizeof two));
    uint32_t result = 1;
    EXPECT_EQ(showDebug(response, &result), "");
    EXPECT_EQ(result, 0u);

    // A mask of its full four bytes, and one longer than that, are shown as before.
    CmfResponse full;
    full.items.push_back(CmfItem::u32(14, 17));
    EXPECT_EQ(showDebug(full), "\nnd debug config is on\nnd debug error is on\n");
    CmfResponse longer;
    const uint32_t words[2] = {2, 0xFFFFFFFFu};
    longer.items.push_back(CmfItem::of(14, words, sizeof words));
    EXPECT_EQ(showDebug(longer), "\nnd debug event is on\n");
}

TEST_F(DecodeTest, TheResponseFuzzersTwoByteDebugItemIsNotReadPast)
{
    // The answer that the response fuzzer found: a 2-byte item of response code 14 and an end
    // status that is no status at all. Integers travel in host order, so the message is built
    // here and, on a little-endian host, checked against the fuzzer's bytes.
    CmfResponse found;
    found.status = 13;
    found.endStatus = 0x5700000Du;
    const uint8_t two[2] = {0x59, 0xD1};
    found.items.push_back(CmfItem::of(14, two, sizeof two));
    const std::vector<uint8_t> wire = ndplat::wire_encode_response(found);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    const std::vector<uint8_t> fuzzerInput = {0x53, 0x52, 0x44, 0x4E, 0x0D, 0x00, 0x00, 0x00, 0x0D, 0x00,
                                              0x00, 0x57, 0x01, 0x00, 0x00, 0x00, 0x0E, 0x00, 0x00, 0x00,
                                              0x02, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x59, 0xD1};
    EXPECT_EQ(wire, fuzzerInput);
#endif
    CmfResponse response;
    ASSERT_TRUE(ndplat::wire_decode_response(wire.data(), wire.size(), response));
    ASSERT_EQ(response.items.size(), 1u);
    EXPECT_EQ(response.items[0].length, 2u);
    uint32_t result = 1;
    EXPECT_EQ(showDebug(response, &result), "");
    EXPECT_EQ(result, 0u);
}

} // namespace
