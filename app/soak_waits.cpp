#include "app/soak_waits.h"

#include "node/cfi_sig.h"
#include "node/ipsocki_sig.h"
#include "node/ipsynctsi_sig.h"
#include "node/msi_sig.h"
#include "node/ngpduhif.h"
#include "node/phyport.h"
#include "node/pktsyncdrv_sig.h"
#include "node/slowpi_sig.h"
#include "sig/bira_sig.h"
#include "sig/idpi_sig.h"
#include "sig/inrsi_sig.h"
#include "sig/tuiif_pktref_sig.h"
#include "sig/tuiif_sig.h"
#include "sig/tuiif_socpri_sig.h"
#include "ose/queues.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace app {
namespace {

constexpr double REPEATED_s = 75.0;          // each minute at the latest, and some
constexpr double MEMORY_REPEATED_s = 615.0;  // each 10 min: its lack costs a warm start alone
constexpr double BLOCKED_s = 20.0;           // an exchange of 5 s, and what stands behind it
constexpr double STARTED_s = 80.0;           // a start asks each minute, and does what has waited
constexpr double ANSWERED_s = 180.0;         // an alignment measures for a minute or two
constexpr double MEASURED_s = 20.0;          // ten times a second, but for a jump's 5 s

/// A service, by the word that events have for it.
struct Service {
    const char* word;
    const sim::Server& (*of)(sim::Node&);
};
using Node = sim::Node;
using Server = sim::Server;
constexpr Service SERVICES[] = {
    {"name_server", [](Node& n) -> const Server& { return n.nameServer(); }},
    {"temi", [](Node& n) -> const Server& { return n.temi(); }},
    {"pri", [](Node& n) -> const Server& { return n.pri(); }},
    {"msi", [](Node& n) -> const Server& { return n.msi(); }},
    {"bira", [](Node& n) -> const Server& { return n.bira(); }},
    {"idpi", [](Node& n) -> const Server& { return n.idpi(); }},
    {"inrsi", [](Node& n) -> const Server& { return n.inrsi(); }},
    {"slowpi", [](Node& n) -> const Server& { return n.slowpi(); }},
    {"ngpduhif", [](Node& n) -> const Server& { return n.ngpduhif(); }},
    {"ipsync", [](Node& n) -> const Server& { return n.ipsync(); }},
    {"phy", [](Node& n) -> const Server& { return n.phyPorts(); }},
    {"cfi", [](Node& n) -> const Server& { return n.cfi(); }},
    {"driver", [](Node& n) -> const Server& { return n.pktsyncDrv(); }},
    {"socket", [](Node& n) -> const Server& { return n.ipsocki(); }},
};
constexpr const char* OF_A_START[] = {"name_server", "temi", "pri", "msi", "bira"};

/// What a unit asks a service for until it is served.
struct Request {
    SIGSELECT sigNo;
    const char* service;
};
constexpr Request REQUESTS[] = {
    {TARSO_MSI_INITIATE_SERVICE_REQ, "msi"},
    {KVD_BIRAIIF_INITIATE_SERVICE_REQ, "bira"},     {KVD_BIRAIIF_IDL2_SELECT_IDL_TYPE_REQ, "bira"},
    {IDPI_CONN_ESTABLISH_REQ, "idpi"},              {IDPI_SUBSCRIBE_LINK_STATUS_REQ, "idpi"},
    {INRSI_CONN_ESTABLISH_REQ, "inrsi"},            {INRSI_SUBSCRIBE_LINK_STATUS_REQ, "inrsi"},
    {SLOWPI_INITIATE_SERVICE_REQ, "slowpi"},        {SLOWPI_SUBSCRIBE_REQ, "slowpi"},
    {KVD_NGPDUHIF_CONN_ESTABLISH_REQ, "ngpduhif"},  {IPSYNCTSI_INITIATE_SERVICE_REQ, "ipsync"},
    {PHYPORT_CONNECT_REQ, "phy"},                   {CFI_INITIATE_SERVICE_REQ, "cfi"},
    {PKTSYNCDRV_INITIATE_SERVICE_REQ, "driver"},    {TARSO_IPSOCKI_INITIATE_SERVICE_REQ, "socket"},
};

const Server& serverOf(Node& node, const char* service)
{
    for (const Service& s : SERVICES)
        if (std::strcmp(s.word, service) == 0) return s.of(node);
    std::abort();
}

/// An order that is answered, one way or the other.
struct Order {
    SIGSELECT request, answer, otherAnswer;
    const char* name;
    bool isRadio;                            // the next one of these takes its place
};
constexpr Order ORDERS[] = {
    {KVD_TUIIF_SOCPRI_SCAN_LINK_REQ, KVD_TUIIF_SOCPRI_SCAN_LINK_RSP, 0, "a scan", true},
    {KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_REQ, KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP,
     KVD_TUIIF_SOCPRI_ALREADY_SELECTED_IND, "a radio link's selection", true},
    {KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ, KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_RSP, 0, "an alignment",
     true},
    {KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ, KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_RSP, 0,
     "a radio link's holdover", true},
    {KVD_TUIIF_CREATE_PKT_REF_RO_REQ, KVD_TUIIF_CREATE_PKT_REF_RO_CFM, 0, "a packet reference's creation",
     false},
    {KVD_TUIIF_DELETE_PKT_REF_RO_REQ, KVD_TUIIF_DELETE_PKT_REF_RO_CFM, 0, "a packet reference's end", false},
    {KVD_TUIIF_GPS_ATTRIB_REQ, KVD_TUIIF_GPS_ATTRIB_CFM, 0, "the receiver's attributes", false},
};

const Order* orderOf(SIGSELECT request)
{
    const auto found = std::ranges::find(ORDERS, request, &Order::request);
    return found != std::end(ORDERS) ? found : nullptr;
}

std::string since(const std::string& what, double s)
{
    char text[160];
    std::snprintf(text, sizeof text, "%s since %.1f s", what.c_str(), s);
    return text;
}

}  // namespace

void SoakWaits::programStarts()
{
    open_.clear();
    for (auto& [sigNo, asked] : asked_) asked.isLost = false;
    blocked_s_ = apart_s_ = -1;
    isRadioTold_ = false;
}

void SoakWaits::onEvent(const std::string& what)
{
    if (!what.starts_with("node.service ")) return;
    lookAtRequests();                            // what it heard up to now it heard as it was
    for (const Service& s : SERVICES) {
        if (!what.ends_with(std::string("service=") + s.word)) continue;
        if (what.find("does=mute") != std::string::npos) mute_.insert(s.word);
        if (what.find("does=speak") != std::string::npos) mute_.erase(s.word);
    }
}

void SoakWaits::ordered(double t, std::span<const std::byte> signal)
{
    SIGSELECT number = 0;
    std::memcpy(&number, signal.data(), sizeof number);
    switch (number) {
    case KVD_TUIIF_INITIATE_SERVICE_CFM:
        open_.clear();
        isRadioTold_ = false;
        return;
    case KVD_TUIIF_INITIATE_SERVICE_SUS:
    case KVD_TUIIF_INITIATE_SERVICE_REJ: isRefused_ = true; return;
    default: break;
    }
    const Order* const order = orderOf(number);
    const bool endsRadio = number == KVD_TUIIF_SOCPRI_DESELECT_SYNC_LINK_IND
                           || number == KVD_TUIIF_SOCPRI_STOP_REQ || number == KVD_TUIIF_SELECT_SYNCH_REF_IND;
    if (endsRadio || (order != nullptr && order->isRadio)) {
        std::erase_if(open_, [](const Open& o) { return orderOf(o.request)->isRadio; });
        isRadioTold_ = false;
    }
    if (order != nullptr) open_.push_back({number, t});
}

void SoakWaits::told(const sim::MpRecord& record)
{
    const SIGSELECT sigNo = record.sigNo;
    if (sigNo == KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD) ++forwarded_;
    if (sigNo == KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND || sigNo == KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP)
        if (const auto link = record.as<KvdTuiifSocpriLinkSyncStatusInd>())
            isRadioTold_ = link->syncStatus == OK_TIME_LOCKED;
    std::erase_if(open_, [sigNo](const Open& o) {
        const Order& order = *orderOf(o.request);
        return sigNo == order.answer || sigNo == order.otherAnswer;
    });
}

std::string SoakWaits::look(double t, double disturbed_s, bool serves)
{
    for (const std::string& what :
         {manager(t, serves), connection(t), requests(t), orders(t, disturbed_s), phases(t)})
        if (!what.empty()) return what;
    return "";
}

void SoakWaits::lookAtServices(double t)
{
    lookAtRequests();
    for (const Service& s : SERVICES) {
        const Server& server = s.of(node_);
        if (!server.alive() && !well_s_.contains(s.word)) continue;      // the node has none
        if (!well_s_.contains(s.word) || !server.alive() || server.answer() != sim::Answer::Accept
            || mute_.contains(s.word))
            well_s_[s.word] = t;
    }
    const sim::MainProcessor& mp = node_.mainProcessor();
    if (!mp.alive()) isRefused_ = false;
    if (!mp.alive() || mp.answer() != sim::Answer::Accept) allWell_s_ = t;
    for (const char* const service : OF_A_START)
        if (well_s_.contains(service)) allWell_s_ = std::max(allWell_s_, well_s_[service]);
}

void SoakWaits::lookAtRequests()
{
    for (const Request& r : REQUESTS) {
        const Server& server = serverOf(node_, r.service);
        Asked& asked = asked_[r.sigNo];
        const u32 heard = server.received(r.sigNo);
        if (heard != asked.heard) asked = {heard, mute_.contains(r.service)};
        if (!server.alive()) asked.isLost = false;       // its death was told
    }
}

/// It takes what comes; an exchange that leaves the rest in the queue has an end. A start waits for who
/// decides on the hardware, connected or not.
std::string SoakWaits::manager(double t, bool serves)
{
    const PROCESS manager = node_.system().find("Kvd_loz6_tumgr_proc");
    if (manager == 0 || !ose::leavesSignals(node_.system(), manager)) blocked_s_ = -1;
    else if (blocked_s_ < 0)                                         blocked_s_ = t;
    if (blocked_s_ < 0 || t - blocked_s_ < BLOCKED_s) return "";
    const bool isStarted = serves && node_.mainProcessor().connected();
    if (!isStarted && t - allWell_s_ < STARTED_s) return "";
    return since("the manager takes no signals", blocked_s_);
}

/// A main processor that would serve it is found and asked.
std::string SoakWaits::connection(double t)
{
    if (node_.mainProcessor().connected() || isRefused_) apart_s_ = -1;
    else if (apart_s_ < 0)                               apart_s_ = t;
    if (apart_s_ < 0 || t - std::max(apart_s_, allWell_s_) < REPEATED_s) return "";
    return since("a main processor that would serve isn't asked", apart_s_);
}

std::string SoakWaits::requests(double t) const
{
    for (const Request& r : REQUESTS) {
        const auto well = well_s_.find(r.service);
        const double within_s = std::strcmp(r.service, "msi") == 0 ? MEMORY_REPEATED_s : REPEATED_s;
        const bool isWell = well != well_s_.end() && t - well->second >= within_s;
        if (!isWell || !asked_.at(r.sigNo).isLost) continue;
        char text[100];
        std::snprintf(text, sizeof text, "service %s isn't asked again for 0x%x", r.service, r.sigNo);
        return since(text, well->second);
    }
    return "";
}

std::string SoakWaits::orders(double t, double disturbed_s) const
{
    for (const auto& [service, well_s] : well_s_) disturbed_s = std::max(disturbed_s, well_s);
    for (const Open& o : open_)
        if (node_.mainProcessor().connected() && t - std::max(o.since_s, disturbed_s) > ANSWERED_s)
            return since(std::string(orderOf(o.request)->name) + " isn't answered", o.since_s);
    return "";
}

/// Whoever tells that it has the time of a radio link goes on measuring it, unless it is halted. Supervised
/// ports are asked for once a minute.
std::string SoakWaits::phases(double t)
{
    constexpr u32 OF_SUPERVISION = 6;            // at most in a second, one a port
    const u32 phases = node_.inrsi().received(INRSI_GET_PHASE_DIFF2_REQ) + forwarded_;
    const bool isMeasured = phases - std::exchange(phases_, phases) > OF_SUPERVISION;
    const sim::MainProcessor& mp = node_.mainProcessor();
    const bool isDue =
        isRadioTold_ && mp.connected() && !isRefused_ && mp.clockState() != KVD_TUIIF_FAILURE;
    if (isMeasured || !isDue)   unmeasured_s_ = -1;
    else if (unmeasured_s_ < 0) unmeasured_s_ = t;
    if (unmeasured_s_ < 0 || t - unmeasured_s_ < MEASURED_s) return "";
    return since("a radio link whose time is told isn't measured", unmeasured_s_);
}

}  // namespace app
