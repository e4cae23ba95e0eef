#include "tests/support/every_fault.h"

#include "tests/support/fault_injection.h"
#include "tests/support/leak_check.h"

#include <gtest/gtest.h>

namespace {

using support::CallKind;
using support::FailingCall;
using support::Outcomes;
using support::Scenario;

std::string describedOutcomeOf(const Scenario& scenario) {
    try {
        return scenario();
    } catch (const std::exception& failure) {
        return std::string("! ") + failure.what();
    }
}

// The description needs memory, too.
std::string outcomeOf(const Scenario& scenario) {
    try {
        return describedOutcomeOf(scenario);
    } catch (const std::bad_alloc&) {
        return support::kNoMemory;
    }
}

class EveryFault {
public:
    EveryFault(CallKind kind, const Scenario& scenario, const Outcomes& documented)
        : kind_(kind), scenario_(scenario), missing_(documented), expected_(documented) {
        outcomeOf(scenario); // what is kept for ever is allocated now
        expected_.insert(outcomeOf(scenario));
    }

    long run() {
        for (long number = 1; failInEachWay(number); ++number) {
        }
        expectNoneMissing();
        return runs_;
    }

private:
    void expectNoneMissing() const {
        for (const std::string& outcome : missing_)
            ADD_FAILURE() << "never came to: " << outcome;
    }

    struct Run {
        bool reached;
        bool failed;
        Outcomes::const_iterator outcome; // one of those that are expected, or their end
        std::string unexpected;           // allocates nothing unless it is needed
    };

    // Returns whether there is such a call.
    bool failInEachWay(long number) {
        for (unsigned way = 0;; ++way) {
            const long blocks = support::liveBlocks();
            const int descriptors = support::openDescriptors();
            const Run run = runOnce(number, way);
            if (!run.failed)
                return run.reached;
            const long blocksLeft = support::liveBlocks() - blocks;
            const int descriptorsLeft = support::openDescriptors() - descriptors;
            judge(run, blocksLeft, descriptorsLeft);
        }
    }

    Run runOnce(long number, unsigned way) const {
        const FailingCall failing(kind_, number, way);
        const std::string outcome = outcomeOf(scenario_);
        const auto known = expected_.find(outcome);
        return {failing.reached(), failing.failed(), known,
                known == expected_.end() ? outcome : std::string()};
    }

    void judge(const Run& run, long blocksLeft, int descriptorsLeft) {
        ++runs_;
        const std::string call = support::failedCall();
        EXPECT_EQ(descriptorsLeft, 0) << call << " leaves a descriptor";
        if (run.outcome == expected_.end()) {
            ADD_FAILURE() << call << " came to: " << run.unexpected;
            return;
        }
        EXPECT_EQ(blocksLeft, 0) << call << " leaves memory";
        missing_.erase(*run.outcome);
    }

    CallKind kind_;
    const Scenario& scenario_;
    Outcomes missing_;
    Outcomes expected_;
    long runs_ = 0;
};

} // namespace

long support::failEveryCall(CallKind kind, const Scenario& scenario, const Outcomes& documented) {
    return EveryFault(kind, scenario, documented).run();
}

void support::failEverything(const Scenario& scenario, const Outcomes& withoutMemory,
                             const Outcomes& withoutSystem) {
    failEveryCall(CallKind::kMemory, scenario, withoutMemory);
    failEveryCall(CallKind::kSystem, scenario, withoutSystem);
}
