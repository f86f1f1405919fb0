// Frames of any content and length to a unit that listens to its peer: the reader stays within them, a level
// is told only with an accepted frame, and after all of them a good frame is taken as ever. The bytes lie in
// a buffer of their own size, so that the sanitizers see a look behind their end.
#include "fuzz/fuzz.h"
#include "node/slowpi.h"
#include "refs/kvd_slowpi_int.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"

namespace {

using fuzz::require;

using Bytes = std::vector<u8>;

const Bytes GOOD = {0x01, 0x80, 0xC2, 0, 0, 2, 2, 0, 0, 0, 0, 1, 0x88, 0x09, 0x0A, 0, 0x19, 0xA7,
                    0,    1,    0x18, 0, 0, 0, 1, 0, 4, 2, 0, 0, 0,    0};

sim::NodeConfig config()
{
    sim::NodeConfig c;
    c.mainProcessor.selectionQlMode = 1;
    c.mainProcessor.selects = false;
    c.mainProcessor.references = {{.name = "a", .refType = ETHA_REF, .froId = 21, .froClassNo = 7}};
    return c;
}

struct Target {
    ose::World world{1};
    sim::Node node{world, config()};

    Target()
    {
        fuzz::watch(world, node);
        node.powerOn();
        world.runFor(5 * ose::SEC);
    }
    slowpi::State state()
    {
        return node.inProgram([] { return slowpi::state(); });
    }
    std::size_t told() { return node.mainProcessor().count(KVD_TUIIF_QUALITY_LEVEL_IND); }
    void frame(const Bytes& bytes, u32 claimed)
    {
        const SlowpiFrame head{SLOWPI_RECEIVE_FRAME_IND, claimed};
        fuzz::inject(node, fuzz::MANAGER, fuzz::signalOf(head, bytes), node.slowpi().pid());
        world.runFor(ose::MS);
    }
};

/// Of the input as it is, or a good frame, plain or tagged, with some of its octets replaced and cut.
Bytes frameOf(std::span<const unsigned char>& rest)
{
    const u8 kind = rest[0];
    const std::size_t length = std::min<std::size_t>(rest[1] % 80, rest.size() - 2);
    Bytes bytes(rest.begin() + 2, rest.begin() + 2 + static_cast<std::ptrdiff_t>(length));
    rest = rest.subspan(2 + length);
    if (kind < 32) return bytes;
    Bytes frame = GOOD;
    if ((kind & 1) != 0) frame.insert(frame.begin() + 12, {0x81, 0x00, 0x12, 0x34});
    if (!bytes.empty() && bytes[0] < 64) frame.resize(bytes[0] % (frame.size() + 1));
    for (std::size_t i = 1; i + 1 < bytes.size() && i < 5; i += 2)
        if (!frame.empty()) frame[bytes[i] % frame.size()] = bytes[i + 1];
    return frame;
}

void readAlone(const Bytes& bytes)
{
    const std::unique_ptr<u8[]> exact(new u8[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), exact.get());
    const slowpi::EsmcReading r = slowpi::readEsmc({exact.get(), bytes.size()});
    const bool taken = r.verdict == slowpi::EsmcVerdict::Taken;
    require(!taken || (bytes.size() >= 32 && r.ssm <= 15 && r.code == 0), "taken without being one");
    require((r.code != 0) == (r.verdict >= slowpi::EsmcVerdict::NoFrame &&
                              r.verdict <= slowpi::EsmcVerdict::OtherProtocol),
            "a code that doesn't go with its verdict");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    constexpr u32 INPUTS_A_UNIT = 500;
    Target& target = fuzz::serving<Target>(INPUTS_A_UNIT);
    target.node.mainProcessor().clearLog();
    // An input is a row of frames: kind, length, content.
    std::span<const unsigned char> rest(data, size);
    while (rest.size() > 2) {
        const u32 lie = rest[1] >= 250 ? 0xFFFFFFF0u + (rest[1] & 7u) : 0;
        const Bytes bytes = frameOf(rest);
        readAlone(bytes);
        const slowpi::State before = target.state();
        const std::size_t toldBefore = target.told();
        target.frame(bytes, lie != 0 ? lie : static_cast<u32>(bytes.size()));
        const slowpi::State after = target.state();
        require(after.nmbOfFrames == before.nmbOfFrames + 1, "a frame wasn't looked at");
        require(after.pduMissing.timer.runs(), "a frame that counts for no life");
        if (after.nmbOfRejectedFrames != before.nmbOfRejectedFrames)
            require(target.told() == toldBefore && after.SSM == before.SSM,
                    "a rejected frame changed the level");
    }
    target.frame(GOOD, static_cast<u32>(GOOD.size()));
    require(target.state().SSM == 2, "a good frame wasn't taken");
    require(target.node.programEnds().empty(), "the program ended");
    return 0;
}
