// Commands that a GPS receiver takes, and its answers.
#include "sim/refs/gps_receiver.h"

namespace sim {
namespace {

constexpr std::size_t FILLER = 79;         // characters between "$" and CR
constexpr u32 FILLERS_TO_CLEAR = 19;
constexpr std::size_t LONGEST = 254;

}  // namespace

bool GpsReceiver::twoProtocols() const
{
    return config_.model == GpsModel::Gps02 || config_.model == GpsModel::Gps03;
}

void GpsReceiver::onBytes(const std::vector<u8>& bytes)
{
    if (!powered_ || world_.now() < silentUntil_) return;
    for (const u8 byte : bytes) {
        if (byte == '$') {
            received_.assign(1, static_cast<char>(byte));
        } else if (byte == '\r' && !received_.empty()) {
            const std::string sentence = received_.substr(1);
            received_.clear();
            onCommand(sentence);
        } else if (!received_.empty() && received_.size() < LONGEST) {
            received_ += static_cast<char>(byte);
        }
    }
}

void GpsReceiver::onCommand(const std::string& sentence)
{
    // A filler's checksum isn't looked at: it is there to be pushed through the input buffer.
    if (sentence.size() == FILLER && sentence.starts_with("PNVX,x,x,x,")) {
        if (++fillers_ >= FILLERS_TO_CLEAR) endFault(GpsFault::Deaf);
        return;
    }
    if (faulty(GpsFault::Deaf)) return;
    std::string body;
    if (nmea::bodyOf(sentence, body) && obey(body)) ++commands_;
    else ++refused_;
}

bool GpsReceiver::obey(const std::string& body)
{
    if (body == "PFEC,GPset,Z1") {
        if (twoProtocols()) setProtocol(GpsProtocol::Furuno);
        return twoProtocols() || config_.model == GpsModel::Gps01;
    }
    if (body == "PFEC,GPclr,1") {
        if (config_.model == GpsModel::Gps01 || twoProtocols()) restart(GpsRestart::ModuleCold);
        return config_.model == GpsModel::Gps01 || twoProtocols();
    }
    if (config_.model == GpsModel::Gps01 || config_.model == GpsModel::Norvane) return false;
    if (body == "PNVX,GPper,1") {
        if (twoProtocols()) setProtocol(GpsProtocol::Combined);
        return true;
    }
    if (body == "PNVX,GPmod,1" || body == "PNVX,GPmod,2") {
        wantsHold_ = body.back() == '1';
        return true;
    }
    return obeyRestart(body) || obeyQuery(body);
}

bool GpsReceiver::obeyRestart(const std::string& body)
{
    const bool old = config_.firmware == "110624", newer = config_.firmware == "120510";
    if (body == "PTNLSRT,C,0" && twoProtocols()) {
        restart(GpsRestart::ModuleCold);
        return true;
    }
    if (body == "PNVX,GPrst,S,1" && !old && !newer) {
        restart(GpsRestart::Module);
        return true;
    }
    if (body == "PNVX,GPdbg,g") return old || newer;
    if (!newer) return false;
    if (body == "PNVX,GPdbg,r,i") {
        halfRestart_ = true;
        return true;
    }
    if (body == "PNVX,GPdbg,r,o" && halfRestart_) {
        restart(GpsRestart::Module);
        return true;
    }
    if (body == "PNVX,GPdbg,r,s") {
        restart(GpsRestart::Unit);
        return true;
    }
    return false;
}

bool GpsReceiver::obeyQuery(const std::string& body)
{
    if (body == "PTNLQVR,H") transmit(nmea::rvrHardware());
    else if (body == "PTNLQVR,S") transmit(nmea::rvrSoftware(config_.firmware));
    else if (body == "PTNLQBA")
        transmit(nmea::rba(faulty(GpsFault::AntennaOpen)    ? 1
                           : faulty(GpsFault::AntennaShort) ? 2
                                                            : 0,
                           config_.checksums));
    else return false;
    return true;
}

}  // namespace sim
