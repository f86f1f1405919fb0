#include "node/trace.h"

#include "node/sig.h"
#include "support/idle_node.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {
std::size_t lines(IdleNode& b, const std::string& text) { return b.node.traces().count({text}); }
}  // namespace

TEST(Trace, MaskBelongsToTheProcessAndTheProgramsMaskToAll)
{
    IdleNode b;
    b.in([&] {
        node::traceAttachProcess();
        node::traceSetMask(1u << 18);
        EXPECT_TRUE(node::traceIsOn(TRACE_SEND_SIG));
        EXPECT_FALSE(node::traceIsOn(TRACE_ERROR));
        EXPECT_FALSE(node::traceIsOn(20)) << "no such level";
    });
    b.in([&] { EXPECT_FALSE(node::traceIsOn(TRACE_SEND_SIG)); });
    b.in([&] { node::traceSetProgramMask(1u << 17); });
    b.in([&] { EXPECT_TRUE(node::traceIsOn(TRACE_REC_SIG) && !node::traceIsOn(TRACE_ERROR)); });
    b.node.restartWarm();
    b.world.runFor(ose::MS);
    b.in([&] { EXPECT_EQ(node::traceMask(), 0x00300013u) << "a loaded program starts anew"; });
}

TEST(Trace, CarriesGroupLevelProcessAndPlace)
{
    IdleNode b;
    int evaluated = 0;
    b.in([&] {
        node::traceRegisterGroup("FIRST");
        node::traceRegisterGroup("SECOND");
        KVD_TRACE(1, TRACE_INFO, "value=%d text=%s", 7, "x");
        KVD_TRACE(1, TRACE_ENTER, "never %d", ++evaluated);
        KVD_TRACE(2, TRACE_ERROR, "of no group");
    }, "tracing_proc");
    ASSERT_EQ(lines(b, "value=7 text=x"), 1u);
    const sim::TraceLine* line = b.node.traces().last({"value=7"});
    EXPECT_EQ(line->group, "SECOND");
    EXPECT_EQ(line->level, 4);
    EXPECT_EQ(line->process, "tracing_proc");
    EXPECT_EQ(line->file, "trace_test.cpp");
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(b.node.traces().count({.text = "of no group", .group = "SECOND"}), 0u);
    EXPECT_EQ(lines(b, "of no group"), 1u);
}

TEST(Trace, TextThatDoesntFitIsCutAndCounted)
{
    struct Case { std::size_t length; u32 status; std::size_t kept; };
    for (const Case& c : std::to_array<Case>({{1023, 0, 1023}, {1024, 1, 1023}, {9000, 1, 1023}})) {
        SCOPED_TRACE(c.length);
        IdleNode b;
        b.in([&] {
            node::traceAttachProcess();
            KVD_TRACE(0, TRACE_ERROR, "%s", std::string(c.length, 'z').c_str());
            EXPECT_EQ(node::traceErrorStatus(), c.status);
            node::traceClearErrorStatus();
            EXPECT_EQ(node::traceErrorStatus(), 0u);
        });
        ASSERT_EQ(lines(b, "zzz"), 1u);
        EXPECT_EQ(b.node.traces().last({"zzz"})->text, std::string(c.kept, 'z'));
    }
}

TEST(ReceivedSignal, ShorterThanItsLayoutIsRefusedWithATrace)
{
    struct Layout { SIGSELECT sigNo; u32 a; u8 b; };            // 12 bytes
    struct Case { u32 size; bool taken; };
    for (const Case& c : std::to_array<Case>({{4, false}, {11, false}, {12, true}, {13, true}})) {
        SCOPED_TRACE(c.size);
        IdleNode b;
        b.in([&] {
            Signal* sig = ose::alloc(c.size, 0x9C00A);
            EXPECT_EQ(as<Layout>(sig) != nullptr, c.taken);
            ose::free_buf(&sig);
        });
        EXPECT_EQ(b.node.traces().count({.text = "0x9c00a", .level = 1}), c.taken ? 0u : 1u);
    }
}
