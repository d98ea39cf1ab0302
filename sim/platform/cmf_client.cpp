// The message-framework client: contexts, item encoding (with copies of the values), send,
// receive and decode. A context reaches the service through the transport that is set, or,
// without one, is answered in process from scripted responses (the unit tests' responder).
#include <atomic>
#include <cstring>
#include <deque>
#include <list>
#include <mutex>

#include "nd_cli_types.h"
#include "nd_cli_wire.h"
#include "ndplat.h"
#include "ndplat_service.h"

namespace {

using ndwire::kCmfNoMore;
using ndwire::kCmfOk;
constexpr uint32_t kCmfFailure = ndplat::kCmfStatusFailure; // misuse of a context
constexpr uint32_t kContextMagic = 0xC3F0C3F0u;
constexpr uint32_t kServiceBusy = ND_ERR_SYSTEM_BUSY; // "busy, another operation is processing"

std::atomic<unsigned long> gServiceFailures{0}; // see ndplat::service_failures

struct Context {
    uint32_t magic = kContextMagic;
    std::string service;
    uint32_t type = 0, instance = 0, timeout = 0;
    const void *object = nullptr;
    std::vector<ndplat::CmfItem> pending;
    ndplat::CmfTransport *transport = nullptr;
    void *connection = nullptr;
    std::deque<ndplat::CmfResponse> inbox; // answered in process, not yet received
    // Received responses stay until the context closes: decoded values point into them.
    std::list<ndplat::CmfResponse> received;
    ndplat::CmfResponse *current = nullptr;
    size_t cursor = 0;
};

struct CmfState {
    std::mutex mutex;
    std::deque<ndplat::CmfResponse> scripted;
    ndplat::CmfResponder responder;
    ndplat::CmfTransport *transport = nullptr;
    std::vector<ndplat::CmfRequest> requests;
    std::vector<std::pair<std::string, CMF_SERVICE_ADDR>> services;
    long openContexts = 0;
};

CmfState &state()
{
    static CmfState s;
    return s;
}

void resetCmf()
{
    CmfState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    s.scripted.clear();
    s.responder = nullptr;
    s.transport = nullptr;
    s.requests.clear();
    s.services.clear();
}

const bool registered = (ndplat::on_reset(resetCmf), true);

Context *contextOf(CMF_CONTEXT handle)
{
    Context *ctx = static_cast<Context *>(handle);
    return ctx && ctx->magic == kContextMagic ? ctx : nullptr;
}

const char *ptrText(const void *p)
{
    return p ? "ptr" : "null";
}

// The header fields of the request block, read field by field from the object.
void readHeader(const void *object, ndplat::CmfRequest &request)
{
    if (!object)
        return;
    NdCliParam block;
    memcpy(&block, object, sizeof block);
    request.hasObject = true;
    request.cmdCode = block.cmdCode;
    request.optKind = block.optKind;
    request.reserved = block.reserved;
    request.serviceType = block.serviceType;
    request.serviceInstance = block.serviceInstance;
    request.itemCount = block.itemCount;
    request.argIndex = block.argIndex;
}

ndplat::CmfResponse answerInProcess(const ndplat::CmfRequest &request)
{
    ndplat::CmfResponder responder;
    {
        CmfState &s = state();
        std::lock_guard<std::mutex> hold(s.mutex);
        if (!s.scripted.empty()) {
            ndplat::CmfResponse response = s.scripted.front();
            s.scripted.pop_front();
            return response;
        }
        responder = s.responder;
    }
    return responder ? responder(request) : ndplat::CmfResponse{};
}

// What decoding answers once a response's items are used up: the end status the response
// carries, except 0, which would read as "one more item decoded" and keep a caller decoding an
// empty response for ever; it is "nothing more" instead. 13 and 6, the real end statuses,
// and the failure statuses pass as they are.
uint32_t endOfItems(uint32_t wireEndStatus)
{
    return wireEndStatus == kCmfOk ? kCmfNoMore : wireEndStatus;
}

} // namespace

namespace ndplat {

CmfItem CmfItem::of(uint32_t type, const void *value, uint32_t length)
{
    CmfItem item;
    item.type = type;
    item.length = length;
    if (value && length)
        item.bytes.assign(static_cast<const uint8_t *>(value), static_cast<const uint8_t *>(value) + length);
    return item;
}

CmfItem CmfItem::u32(uint32_t type, uint32_t value)
{
    return of(type, &value, sizeof value);
}

uint32_t CmfItem::as_u32() const
{
    uint32_t value = 0;
    memcpy(&value, bytes.data(), bytes.size() < sizeof value ? bytes.size() : sizeof value);
    return value;
}

void cmf_transport_set(CmfTransport *transport)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().transport = transport;
}

void cmf_responder_set(CmfResponder responder)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().responder = std::move(responder);
}

void cmf_script(const CmfResponse &response)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().scripted.push_back(response);
}

std::vector<CmfRequest> cmf_requests()
{
    std::lock_guard<std::mutex> hold(state().mutex);
    return state().requests;
}

unsigned long service_failures()
{
    return gServiceFailures.load();
}

long cmf_open_contexts()
{
    std::lock_guard<std::mutex> hold(state().mutex);
    return state().openContexts;
}

std::vector<std::pair<std::string, CMF_SERVICE_ADDR>> cmf_services()
{
    std::lock_guard<std::mutex> hold(state().mutex);
    return state().services;
}

} // namespace ndplat

extern "C" uint32_t CMF_ClientServiceReg(const char *service, CMF_SERVICE_ADDR *addr)
{
    ndplat::trace_call("CMF_ClientServiceReg", "%s, {0x%08X, 0x%08X}", ndplat::trace_str(service).c_str(),
                       addr ? addr->type : 0u, addr ? addr->instance : 0u);
    if (auto fault = ndplat::fault_next("CMF_ClientServiceReg"))
        return static_cast<uint32_t>(*fault);
    if (!service || !addr)
        return kCmfFailure;
    std::lock_guard<std::mutex> hold(state().mutex);
    state().services.emplace_back(service, *addr);
    return kCmfOk;
}

extern "C" CMF_CONTEXT CMF_ClientContextInit(const char *service, uint32_t type, uint32_t instance)
{
    ndplat::trace_call("CMF_ClientContextInit", "%s, %u, %u", ndplat::trace_str(service).c_str(), type, instance);
    if (auto fault = ndplat::fault_next("CMF_ClientContextInit"))
        return nullptr;
    if (!service)
        return nullptr;
    Context *ctx = new Context;
    ctx->service = service;
    ctx->type = type;
    ctx->instance = instance;
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        ctx->transport = state().transport;
    }
    if (ctx->transport && !ctx->transport->open(&ctx->connection)) {
        delete ctx;
        return nullptr;
    }
    std::lock_guard<std::mutex> hold(state().mutex);
    ++state().openContexts;
    return ctx;
}

extern "C" uint32_t CMF_ClientContextTimeoutSet(CMF_CONTEXT handle, uint32_t timeout)
{
    ndplat::trace_call("CMF_ClientContextTimeoutSet", "%s, %u", ptrText(handle), timeout);
    if (auto fault = ndplat::fault_next("CMF_ClientContextTimeoutSet"))
        return static_cast<uint32_t>(*fault);
    Context *ctx = contextOf(handle);
    if (!ctx)
        return kCmfFailure;
    ctx->timeout = timeout;
    return kCmfOk;
}

extern "C" uint32_t CMF_ClientContextObjSet(CMF_CONTEXT handle, void *object)
{
    ndplat::trace_call("CMF_ClientContextObjSet", "%s, %s", ptrText(handle), ptrText(object));
    if (auto fault = ndplat::fault_next("CMF_ClientContextObjSet"))
        return static_cast<uint32_t>(*fault);
    Context *ctx = contextOf(handle);
    if (!ctx)
        return kCmfFailure;
    ctx->object = object;
    return kCmfOk;
}

extern "C" uint32_t CMF_ClientParamEncode(CMF_CONTEXT handle, uint32_t type, uint32_t length, const void *value)
{
    ndplat::trace_call("CMF_ClientParamEncode", "%s, %u, %u, %s", ptrText(handle), type, length, ptrText(value));
    if (auto fault = ndplat::fault_next("CMF_ClientParamEncode"))
        return static_cast<uint32_t>(*fault);
    Context *ctx = contextOf(handle);
    if (!ctx || (!value && length))
        return kCmfFailure;
    ctx->pending.push_back(ndplat::CmfItem::of(type, value, length));
    return kCmfOk;
}

extern "C" uint32_t CMF_ClientRequestSend(CMF_CONTEXT handle)
{
    ndplat::trace_call("CMF_ClientRequestSend", "%s", ptrText(handle));
    if (auto fault = ndplat::fault_next("CMF_ClientRequestSend"))
        return static_cast<uint32_t>(*fault);
    Context *ctx = contextOf(handle);
    if (!ctx)
        return kCmfFailure;
    ndplat::CmfRequest request;
    request.service = ctx->service;
    request.contextType = ctx->type;
    request.contextInstance = ctx->instance;
    request.timeout = ctx->timeout;
    readHeader(ctx->object, request);
    request.items = std::move(ctx->pending);
    ctx->pending.clear();
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        state().requests.push_back(request);
    }
    if (ctx->transport)
        return ctx->transport->send(ctx->connection, request, ctx->timeout);
    ctx->inbox.push_back(answerInProcess(request));
    return kCmfOk;
}

extern "C" uint32_t CMF_ClientResponseRecv(CMF_CONTEXT handle)
{
    ndplat::trace_call("CMF_ClientResponseRecv", "%s", ptrText(handle));
    if (auto fault = ndplat::fault_next("CMF_ClientResponseRecv"))
        return static_cast<uint32_t>(*fault);
    Context *ctx = contextOf(handle);
    if (!ctx)
        return kCmfFailure;
    ndplat::CmfResponse response;
    if (ctx->transport) {
        uint32_t status = ctx->transport->receive(ctx->connection, response, ctx->timeout);
        if (status != kCmfOk) {
            if (status != kCmfFailure) // unreachable, closed, timed out or malformed; not misuse
                ++gServiceFailures;
            return status;
        }
    } else {
        if (ctx->inbox.empty())
            return kCmfFailure; // nothing was sent
        response = std::move(ctx->inbox.front());
        ctx->inbox.pop_front();
    }
    ctx->received.push_back(std::move(response));
    ctx->current = &ctx->received.back();
    ctx->cursor = 0;
    if (ctx->current->status == kServiceBusy)
        ++gServiceFailures;
    return ctx->current->status;
}

extern "C" uint32_t CMF_ClientParamDecode(CMF_CONTEXT handle, uint32_t *type, uint32_t *length, void **value)
{
    ndplat::trace_call("CMF_ClientParamDecode", "%s", ptrText(handle));
    if (auto fault = ndplat::fault_next("CMF_ClientParamDecode"))
        return static_cast<uint32_t>(*fault);
    Context *ctx = contextOf(handle);
    if (!ctx || !type || !length || !value)
        return kCmfFailure;
    if (!ctx->current)
        return kCmfNoMore;
    if (ctx->cursor >= ctx->current->items.size())
        return endOfItems(ctx->current->endStatus);
    ndplat::CmfItem &item = ctx->current->items[ctx->cursor++];
    *type = item.type;
    // Never more than the bytes held: a value is only ever read as far as its length says.
    *length = item.bytes.empty() || item.length <= item.bytes.size() ? item.length
                                                                     : static_cast<uint32_t>(item.bytes.size());
    *value = item.bytes.empty() ? nullptr : item.bytes.data();
    return kCmfOk;
}

extern "C" uint32_t CMF_ClientContextClose(CMF_CONTEXT handle)
{
    ndplat::trace_call("CMF_ClientContextClose", "%s", ptrText(handle));
    Context *ctx = contextOf(handle);
    if (auto fault = ndplat::fault_next("CMF_ClientContextClose"))
        return static_cast<uint32_t>(*fault);
    if (!ctx)
        return kCmfFailure;
    if (ctx->transport)
        ctx->transport->close(ctx->connection);
    ctx->magic = 0;
    delete ctx;
    std::lock_guard<std::mutex> hold(state().mutex);
    --state().openContexts;
    return kCmfOk;
}
