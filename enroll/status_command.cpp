#include "enroll/status_command.h"

#include "enroll/terminal.h"

#include <ctime>

namespace enroll {

namespace {

std::string formatStatus(StatusForm form, const std::vector<ServerFacts>& servers, std::int64_t now)
{
    switch (form) {
    case StatusForm::json:
        return formatStatusJson(servers);
    case StatusForm::metrics:
        return formatStatusMetrics(servers, now);
    case StatusForm::lines:
        break;
    }
    return formatStatusLines(servers, now);
}

} // namespace

Verdict runStatus(StatusForm form, std::ostream& out)
{
    try {
        const std::int64_t now = std::time(nullptr);
        const std::vector<ServerFacts> servers = readServerFacts(now);
        show(out, formatStatus(form, servers, now), "the status");
        return judge(servers, now);
    } catch (const Failure& failure) {
        // 1 is a verdict here.
        if (failure.status() != ExitStatus::failed)
            throw;
        throw Failure(ExitStatus::statusNotTold, failure.what());
    } catch (const std::exception& fault) {
        throw Failure(ExitStatus::statusNotTold, std::string("internal failure: ") + fault.what());
    }
}

} // namespace enroll
