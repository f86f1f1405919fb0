#include "sim/node/temi_server.h"

#include "node/temi.h"
#include "node/temi_sig.h"
#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace {

template <std::size_t SIZE>
std::string textOf(const char (&text)[SIZE])
{
    return {text, std::find(text, text + SIZE, '\0')};
}

}  // namespace

TemiServer::TemiServer(Node& node) : Server(node, TARSO_TEMI_SERVER_NAME, 10) {}

void TemiServer::programStarted(u32 type)
{
    restartType = type;
    startUp_ = true;
}

std::size_t TemiServer::failures() const
{
    return static_cast<std::size_t>(
        std::count_if(results_.begin(), results_.end(), [](const TestResult& r) { return r.result != 0; }));
}

void TemiServer::onSignal(Signal* sig, PROCESS from)
{
    if (answer() == Answer::Silent) return;
    switch (sig->sigNo) {
    case TARSO_TEMI_INITIATE_SERVICE_REQ: {
        if (ose::sigsize(&sig) < sizeof(TarsoTemiInitiateServiceReq)) return;
        client_ = textOf(reinterpret_cast<const TarsoTemiInitiateServiceReq*>(sig)->clientName);
        if (answer() != Answer::Accept) return sendEmpty(from, TARSO_TEMI_INITIATE_SERVICE_REJ);
        sendEmpty(from, TARSO_TEMI_INITIATE_SERVICE_CFM);
        if (startUp_) sendDoTest(from);
        return;
    }
    case TARSO_TEMI_DO_TEST_RSP:
    case TARSO_TEMI_TEST_RESULT_IND: {
        if (ose::sigsize(&sig) < sizeof(TarsoTemiTestResult)) return;
        const auto* result = reinterpret_cast<const TarsoTemiTestResult*>(sig);
        const bool runtime = sig->sigNo == TARSO_TEMI_TEST_RESULT_IND;
        results_.push_back({node_.world().now(), result->testNumber, result->result,
                            result->last == 1, runtime, textOf(result->testName),
                            textOf(result->message)});
        if (runtime) sendEmpty(from, TARSO_TEMI_TEST_RESULT_RSP);
        else if (result->last != 1) sendDoTest(from);
        return;
    }
    case TARSO_TEMI_TERMINATE_SERVICE_REQ:
        startUp_ = false;
        return sendEmpty(from, TARSO_TEMI_TERMINATE_SERVICE_CFM);
    default: return;
    }
}

void TemiServer::sendDoTest(PROCESS to)
{
    TarsoTemiDoTestInd ind{TARSO_TEMI_DO_TEST_IND, restartType, 1, {}};
    client_.copy(ind.name, sizeof ind.name - 1);
    send(to, ind);
}

}  // namespace sim
