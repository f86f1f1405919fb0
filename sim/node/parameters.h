// parameters.h - What the node knows about its board and its boot: hardware information (ADI),
// board parameters, boot parameters (NVPI).
#pragma once
#include "sim/node/node_config.h"

#include <map>
#include <string>

namespace sim {

class Parameters {
public:
    explicit Parameters(const NodeConfig& config);

    // ---- the services' plain calls --------------------------------------------------------------
    int boardCode(u32& code);
    int board(const char* name, char* text, std::size_t size);
    int boot(const char* name, char* text, std::size_t size);   // codes of Platform::bootParameter

    // ---- script ---------------------------------------------------------------------------------
    int adiResult = 0;                 // nonzero: the hardware information can't be read
    u32 code;                          // 7, 9 or other
    u32 bootServerMissing = 0;         // so many attempts find no server
    u32 bootNonsense = 0;              // so many attempts get an answer that makes no sense
    u32 bootAttempts = 0;              // counts all attempts
    std::map<std::string, std::string> boardTexts;
    std::map<std::string, std::string> bootTexts;

    /// Parameters of a board as it is built: base addresses in hexadecimal, product names that tell
    /// whether it has the external phase detector, delay of the 1PPS to the latch in ns.
    static std::map<std::string, std::string> boardDefaults(u32 boardType, const BoardConfig& board);
};

}  // namespace sim
