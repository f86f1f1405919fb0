// Any bytes in any pieces through the framing of sentences: what is posted, counted and lost is
// what a plain reading of the whole stream gives.
#include "frame/kvd_mgr_proc.h"
#include "fuzz/fuzz.h"
#include "gps/kvd_gps_serial.h"
#include "node/sig.h"
#include "sig/gps_sig.h"
#include "unit/kvd_unit_process.h"

#include <string>

namespace {

using fuzz::require;

void idleMain()
{
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        ose::free_buf(&sig);
    }
}
constexpr ose::ConfigLine CONFIG[] = {{"OSE_LM_POOL_SIZE", "300000"},
                                      {"OSE_LM_MAIN_NAME", "idle_main"},
                                      {"OSE_LM_MAIN_PRIORITY", "30"}};
const ose::Program PROGRAM{"idle", idleMain, CONFIG};

sim::NodeConfig config()
{
    sim::NodeConfig c;
    c.program = &PROGRAM;
    return c;
}

struct Target {
    ose::World world{1};
    sim::Node node{world, config()};

    Target()
    {
        fuzz::watch(world, node);
        node.powerOn();
        world.runFor(ose::MS);
    }
};

/// The rule said in another way: a sentence runs from a "$" to the next CR or "$" within 254 bytes;
/// the byte after 254 of a sentence, or of what is between two, is lost and all begins anew.
struct Model {
    std::vector<std::string> sentences;
    u32 bytes = 0, tooLong = 0;
    bool inside = false;
    std::string held;

    void take(const std::string& piece)
    {
        for (const char c : piece) {
            ++bytes;
            if (held.size() == 254) {
                tooLong += inside ? 1 : 0;
                inside = false;
                held.clear();
            } else if (!inside && c == '$') {
                inside = true;
                held.clear();
            } else {
                held += c;
                if (inside && (c == '\r' || c == '$')) {
                    sentences.push_back(held);
                    inside = false;
                    held.clear();
                }
            }
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static std::unique_ptr<Target> target;
    static std::unique_ptr<Model> model;
    if (!target) {
        target = std::make_unique<Target>();
        model = std::make_unique<Model>();
    }
    // Pieces: a byte that says what comes, then the bytes. Most random bytes are neither "$" nor
    // CR, so some pieces turn theirs into these.
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at < size;) {
        const unsigned char head = data[at++];
        const std::size_t length = std::min<std::size_t>(head & 0x7F, size - at);
        std::string piece(reinterpret_cast<const char*>(data + at), length);
        if ((head & 0x80) != 0)
            for (char& c : piece)
                if ((c & 0x0F) == 0) c = (c & 0x10) != 0 ? '$' : '\r';
        pieces.push_back(piece);
        at += length;
    }
    std::vector<std::string> posted;
    target->node.system().call(*target->node.program(), [&] {
        KvdLoz6TuMgr_setPids(ose::current_process(), 0, 0);
        for (const std::string& piece : pieces)
            KvdLoz6TuGps_serialReceived(reinterpret_cast<const u8*>(piece.data()),
                                        static_cast<u32>(piece.size()));
        while (Signal* sig = ose::receive_w_tmo(0, ose::ANY_SIGNAL)) {
            const auto* rec = as<KvdTugpsNmeaMsgRec>(sig);
            require(rec != nullptr && ose::sigsize(&sig) == rec->length + 14, "a posted buffer's size");
            posted.emplace_back(reinterpret_cast<const char*>(sig) + 8, rec->length);
            ose::free_buf(&sig);
        }
    });
    model->sentences.clear();
    for (const std::string& piece : pieces) model->take(piece);
    require(posted == model->sentences, "the sentences that were posted");
    const GpsSerialCounters counters = target->node.inProgram([] { return KvdLoz6TuGps_serialCounters(); });
    require(counters.numberOfBytesRec == model->bytes, "count of bytes");
    require(counters.numberOfTooLongMsgs == model->tooLong, "count of sentences too long");
    return 0;
}
