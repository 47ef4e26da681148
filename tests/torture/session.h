#pragma once

// What scenarios do with the library, step by step.

#include <memory>
#include <string>
#include <vector>

#include "conformance/framework/link.h"
#include "conformance/framework/params.h"
#include "conformance/framework/settings.h"
#include "torture/torture.h"

namespace torture {

// One constructed library and the first module that it finds.
class Session : public Scenario {
public:
    explicit Session(conformance::Settings settings) : settings_(std::move(settings)) {}

    void Prepare() override;
    void TearDown() override { Destruct(); }

protected:
    // Where a scenario has a device, it tells it here to be as it was.
    virtual void ResetDevice() {}

    void Store() const { settings_.Store(); }
    bool Construct();
    // Also connects it.
    bool FindModule();
    bool Destruct();  // also if nothing is constructed

    conformance::Settings settings_;
    UNUM32 hMod_ = PDU_HANDLE_UNDEF;

private:
    bool TakeFirstModule();

    bool constructed_ = false;
};

// What a ComPrimitive came to.
struct Answers {
    int results = 0;
    int errors = 0;
    bool is_final = false;
};

// A session with a link. The fault happens during what a subclass does with the link.
class LinkScenario : public Session {
public:
    using Session::Session;

    void SetUp() override;
    bool MayRunTwice() const override { return true; }

protected:
    // Creates link_, which is online afterwards.
    virtual std::unique_ptr<conformance::Link> MakeLink();

    UNUM32 Start(UNUM32 type, const std::vector<UNUM8>& data, conformance::ControlData* control);
    bool Await(UNUM32 hCoP, Answers* answers);
    // Takes events until so many results have come.
    bool AwaitResults(int count);
    void TearDown() override;

    std::unique_ptr<conformance::Link> link_;
};

}  // namespace torture
