// check_outcomes.h - How a recording does against one check, kind by kind.
// Stateless. What a check names is there: its reader has made sure.
#pragma once
#include "app/checks.h"

namespace app {

/// `value` is what was measured and `least` to `most` what it may be, in the unit `of`; a kind without a
/// number has none of them.
struct Outcome {
    bool pass = false;
    std::string detail;
    std::optional<double> value = {}, least = {}, most = {};
    const char* of = "";
};

Outcome clockAt(const UnitRecording& u, const CheckSpec& c);
Outcome regStateAt(const UnitRecording& u, const CheckSpec& c);
Outcome selectedAt(const UnitRecording& u, const CheckSpec& c);
Outcome gpsStateAt(const UnitRecording& u, const CheckSpec& c);
Outcome gpsTypeAt(const UnitRecording& u, const CheckSpec& c);
Outcome gpsStatusAt(const UnitRecording& u, const CheckSpec& c);
Outcome qualityAt(const UnitRecording& u, const CheckSpec& c);
Outcome pduMissingAt(const UnitRecording& u, const CheckSpec& c);
Outcome reaches(const UnitRecording& u, const CheckSpec& c);
Outcome gpsReaches(const UnitRecording& u, const CheckSpec& c);
Outcome sequence(const UnitRecording& u, const CheckSpec& c);
Outcome timeError(const UnitRecording& u, const CheckSpec& c);
Outcome errorAboutMean(const UnitRecording& u, const CheckSpec& c);
Outcome freqError(const UnitRecording& u, const CheckSpec& c);
Outcome gpsTimeError(const UnitRecording& u, const CheckSpec& c);
Outcome followError(const UnitRecording& u, const CheckSpec& c);
Outcome underMask(const UnitRecording& u, const CheckSpec& c);
Outcome dividerKept(const UnitRecording& u, const CheckSpec& c);
Outcome gpsTold(const UnitRecording& u, const CheckSpec& c);
Outcome socpriTold(const UnitRecording& u, const CheckSpec& c);
Outcome traced(const UnitRecording& u, const CheckSpec& c);
Outcome errorsLogged(const UnitRecording& u, const CheckSpec& c);
Outcome testsFailed(const UnitRecording& u, const CheckSpec& c);
Outcome periodsReported(const UnitRecording& u, const CheckSpec& c);
Outcome printed(const UnitRecording& u, const CheckSpec& c);

}  // namespace app
