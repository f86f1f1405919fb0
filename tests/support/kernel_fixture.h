// kernel_fixture.h - A world whose tests fail on any misuse of the kernel that they don't expect.
#pragma once
#include "ose/world.h"

#include <gtest/gtest.h>

namespace tests {

/// Collects misuse; what expectMisuse hasn't taken away fails the test.
class MisuseLog {
public:
    explicit MisuseLog(ose::World& world)
    {
        world.onMisuse([this](const ose::Misuse& m) { seen_.push_back(m); });
    }
    ~MisuseLog()
    {
        for (const ose::Misuse& m : seen_) ADD_FAILURE() << m.text();
    }
    MisuseLog(const MisuseLog&) = delete;
    MisuseLog& operator=(const MisuseLog&) = delete;

    /// Takes the oldest report, whose `what` has to contain this text.
    ose::Misuse expectMisuse(const std::string& what)
    {
        if (seen_.empty()) {
            ADD_FAILURE() << "no misuse reported, expected: " << what;
            return {};
        }
        ose::Misuse m = seen_.front();
        seen_.erase(seen_.begin());
        EXPECT_NE(m.what.find(what), std::string::npos) << m.text();
        return m;
    }
    std::size_t count() const { return seen_.size(); }

private:
    std::vector<ose::Misuse> seen_;
};

/// One system of one world. The log outlives the world, so that leaks at its end count too.
class KernelFixture : public ::testing::Test {
protected:
    KernelFixture()
        : world_(new ose::World(1)), log(*world_), world(*world_), system(world.createSystem("tu"))
    {
        system.onProgramEnd([this](ose::Block& block, u32 code, const std::string& text) {
            ends.push_back({block.name(), code, text});
        });
    }

    struct End {
        std::string program;
        u32 code;
        std::string text;
    };

private:
    struct Ending {
        ose::World* world;
        ~Ending() { delete world; }
    };
    ose::World* world_;

protected:
    MisuseLog log;
    std::vector<End> ends;

private:
    Ending ending_{world_};

protected:
    ose::World& world;
    ose::System& system;
};

}  // namespace tests
