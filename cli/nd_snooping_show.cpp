// ND snooping show and clear commands. Statistics, clears and the lookup of one user-bind
// address are single exchanges; the user-bind and prefix tables are paged through here, one
// request per page of 15 entries, until the service reports the last page.
#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "nd_request.h"
#include "nd_snooping.h"
#include "render/nd_render.h"
#include "framework/nd_cli_pager.h"
#include "framework/nd_cli_record.h"

using ndcli::readAt;

namespace {

constexpr int kAddressFamilyIpv6 = 10;
static_assert(AF_INET6 == kAddressFamilyIpv6);

constexpr int32_t kObjectWord = 4; // address, prefix or table kind
constexpr int32_t kClearPrefixBareWords = 4;
constexpr uint8_t kHostPrefixLength = 128;

// What tells the two paged listings apart.
struct PagedTable {
    uint32_t cmdCode;
    uint32_t responseCode;
    void (*render)(const void *payload, uint32_t length, uint32_t *rows, uint8_t *titleShown);
};
constexpr PagedTable kUserBindTable = {ND_CMD_SNP_USER_BIND, ndwire::kRspUserBindPage, ndCliShowUbInfo};
constexpr PagedTable kPrefixTable = {ND_CMD_SNP_PREFIX, ndwire::kRspPrefixPage, ndCliShowPrefixInfo};

// Where a listing stands between two pages.
struct Listing {
    uint32_t tableKind;
    uint16_t start;
    bool secondPass; // after the last page of kind 3, list kind 4 from the beginning
    uint32_t rows;
    uint8_t titleShown;
};

enum class PageEnd {
    Next,   // the next page follows
    Finish, // the listing is over: the pager is told
    Abort,  // given up before anything was asked: no pager
};

template <typename T> void writeAt(uint8_t *bytes, uint32_t offset, T value)
{
    memcpy(bytes + offset, &value, sizeof value);
}

// One page's request and answer. The framework was given the request's block and the payload
// belongs to the context: the context is closed first, the block outlives it.
struct Page {
    ndcli::Request request;
    ndcli::OwnedContext context;
    const uint8_t *payload = nullptr;
    uint32_t length = 0;
};

// Decodes the one item of an answered page.
PageEnd decodePage(const PagedTable &table, Page &page)
{
    uint32_t code = 0;
    void *payload = nullptr;
    const uint32_t r = CMF_ClientParamDecode(page.context.get(), &code, &page.length, &payload);
    if (r == ndwire::kCmfNoMore)
        return PageEnd::Finish;
    if (r != 0) {
        printf("cmf param decode error, ret: %d\n", static_cast<int32_t>(r));
        return PageEnd::Finish;
    }
    if (!payload || page.length == 0 || code != table.responseCode) {
        printf("paramVal null paramLen %d\n", static_cast<int32_t>(page.length));
        return PageEnd::Finish;
    }
    page.payload = static_cast<const uint8_t *>(payload);
    return PageEnd::Next;
}

// Asks the service for the listing's next page. Next when `page` holds it; otherwise the
// failure has been printed and the result says how the listing ends.
PageEnd fetchPage(const PagedTable &table, int32_t argc, char **argv, const Listing &listing, Page &page)
{
    ndcli::Request &request = page.request;
    if (!request.start(argc, argv, table.cmdCode, ndcli::kInitFailed))
        return PageEnd::Abort;
    uint8_t query[ndwire::query::kSize];
    writeAt<uint32_t>(query, ndwire::query::kKind, listing.tableKind);
    writeAt<uint16_t>(query, ndwire::query::kStart, listing.start);
    writeAt<uint16_t>(query, ndwire::query::kCount, ndwire::kPageEntries);
    writeAt<uint32_t>(query, ndwire::query::kZero, 0);
    request.add(ndwire::kItemQuery, sizeof query, query, true);

    NdCliParam &block = request.block();
    *page.context.out() = CMF_ClientContextInit(block.serviceName, block.serviceType, block.serviceInstance);
    if (!page.context) {
        printf("CMF ClientContextInit error %d!", 0);
        return PageEnd::Abort;
    }
    uint32_t r = CMF_ClientContextObjSet(page.context.get(), &block);
    if (r != 0) {
        printf("CMF ClientContextObjSet error %d!", static_cast<int32_t>(r));
        return PageEnd::Finish;
    }
    r = ndcli::encodeItems(page.context.get(), block);
    if (r != 0) {
        printf("CMF ClientParamEncode error %d!", static_cast<int32_t>(r));
        return PageEnd::Finish;
    }
    r = CMF_ClientRequestSend(page.context.get());
    if (r != 0) {
        printf("cmf request send failed ret %d", static_cast<int32_t>(r));
        return PageEnd::Finish;
    }
    r = CMF_ClientResponseRecv(page.context.get());
    if (r != 0 && r != ndwire::kCmfNoMore) {
        nd_CliPrintErrorToVty(r);
        return PageEnd::Finish;
    }
    return decodePage(table, page);
}

// Prints one page and moves the listing on: Next while pages follow.
PageEnd showPage(const PagedTable &table, const Page &page, Listing &listing, ndcli::Pager &pager)
{
    pager.orient();
    table.render(page.payload, page.length, &listing.rows, &listing.titleShown);

    // A page too short to hold its header cannot say where to go on; it ends the listing.
    const bool last =
        page.length < ndwire::page::kSize || readAt<uint32_t>(page.payload, ndwire::page::kLast) == ndwire::page::kIsLast;
    if (!last) {
        // Every page moves the start on, so a pass ends within 65,536 pages. A page that
        // points back at or before its own start would make the listing go round for ever
        // (a pass beyond the 16-bit index wraps to the beginning): the listing fails there.
        const uint16_t next = readAt<uint16_t>(page.payload, ndwire::page::kNext);
        if (next <= listing.start) {
            nd_CliPrintErrorToVty(ND_ERR_OPERATION_FAILED);
            return PageEnd::Finish;
        }
        listing.start = next;
        return PageEnd::Next;
    }
    if (listing.tableKind == ndwire::kTableUserBindFirst && listing.secondPass) {
        listing.tableKind = ndwire::kTableUserBindSecond;
        listing.start = 0;
        return PageEnd::Next;
    }
    printf("\n      Total number: %d\n", static_cast<int32_t>(listing.rows));
    return PageEnd::Finish;
}

// Asks for, prints and accounts one page. The request's context is closed before return.
PageEnd requestPage(const PagedTable &table, int32_t argc, char **argv, Listing &listing, ndcli::Pager &pager)
{
    Page page;
    const PageEnd fetched = fetchPage(table, argc, argv, listing, page);
    return fetched == PageEnd::Next ? showPage(table, page, listing, pager) : fetched;
}

int32_t runListing(const PagedTable &table, int32_t argc, char **argv, uint32_t tableKind, bool secondPass)
{
    Listing listing = {tableKind, 0, secondPass, 0, 0};
    // Each page orients the pager before it is printed; the listing closes it once at the end,
    // unless it was given up before anything was asked.
    ndcli::Pager pager(ndcli::Pager::Start::Later);
    PageEnd end;
    do {
        end = requestPage(table, argc, argv, listing, pager);
    } while (end == PageEnd::Next);
    if (end == PageEnd::Abort) {
        pager.close(ndcli::Pager::End::Nothing);
        return ND_ERR_OPERATION_FAILED;
    }
    // The page format follows whatever the break check answered.
    pager.close(ndcli::Pager::End::BreakAndFormat);
    return ND_OK;
}

} // namespace

extern "C" {

int32_t ndShowNdSnoopingStat(int32_t argc, char **argv)
{
    return ndcli::sendZeroWord(argc, argv, ND_CMD_SNP_STATISTICS, ndwire::kItemQuery);
}

int32_t ndClearNdSnoopingStat(int32_t argc, char **argv)
{
    return ndcli::sendZeroWord(argc, argv, ND_CMD_SNP_STATISTICS, ndwire::kItemClear);
}

int32_t ndClearNdSnoopingDyUbUserBind(int32_t argc, char **argv)
{
    return ndcli::sendZeroWord(argc, argv, ND_CMD_SNP_CLEAR_DYNAMIC, ndwire::kItemClear);
}

int32_t ndShowNdSnoopingUserBindAddr(int32_t argc, char **argv)
{
    ndcli::Request request;
    if (!request.start(argc, argv, ND_CMD_SNP_USER_BIND_ADDR, ndcli::kInitFailed))
        return request.result();
    const char *text = ndcli::textAt(argc, argv, kObjectWord);
    uint8_t address[16];
    memset(address, 0, sizeof address);
    // Only a failure of the conversion itself stops here; a text that is no address goes on.
    if (inet_pton(kAddressFamilyIpv6, text, address) < 0) {
        printf("ipv6 addr is valid %s\n", text);
        return ND_ERR_OPERATION_FAILED;
    }
    request.add(ndwire::kItemAddress, sizeof address, address, true);
    return request.finish();
}

int32_t ndCliOptNdSnoopingPrefix(int32_t argc, char **argv)
{
    ndcli::Request request;
    const char *first = ndcli::firstWord(argc, argv);
    if (!request.start(first, ND_CMD_SNP_PREFIX, ndcli::kInitFailed))
        return request.result();
    uint8_t prefix[16];
    memset(prefix, 0, sizeof prefix);
    uint8_t prefixLength = kHostPrefixLength;
    const uint32_t bare = 1;
    if (nd_CliArgGetOptFlag(first) == ND_CLI_OPT_UNDO) {
        // Without a prefix the shell may pass no word 4: that reads as an empty text.
        char empty[1] = {'\0'};
        char *text = argv && kObjectWord < argc && argv[kObjectWord] ? argv[kObjectWord] : empty;
        if (char *slash = strrchr(text, '/')) {
            *slash = '\0';
            prefixLength = static_cast<uint8_t>(atoi(slash + 1));
        }
        if (inet_pton(kAddressFamilyIpv6, text, prefix) < 0) {
            printf("ipv6 addr is valid %s\n", text);
            return ND_ERR_OPERATION_FAILED;
        }
        request.add(ndwire::kItemAddress, sizeof prefix, prefix, true);
        request.add(ndwire::kItemPrefixLength, sizeof prefixLength, &prefixLength, true);
        if (argc == kClearPrefixBareWords)
            request.add(ndwire::kItemNoAddress, sizeof bare, &bare, true);
    }
    return request.finish();
}

int32_t ndShowNdSnoopingUserBind(int32_t argc, char **argv)
{
    const char *kind = ndcli::textAt(argc, argv, kObjectWord);
    if (strcmp(kind, "static") == 0)
        return runListing(kUserBindTable, argc, argv, ndwire::kTableUserBindStatic, false);
    if (strcmp(kind, "dynamic") == 0)
        return runListing(kUserBindTable, argc, argv, ndwire::kTableUserBindFirst, true);
    return runListing(kUserBindTable, argc, argv, ndwire::kTableUserBindFirst, false);
}

int32_t ndShowNdSnoopingPrefix(int32_t argc, char **argv)
{
    return runListing(kPrefixTable, argc, argv, ndwire::kTablePrefix, false);
}
}
