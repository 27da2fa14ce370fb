#include "tests/fakes/sysinfo/fake_sysinfo.h"

namespace fakes {
namespace {

Sysinfo theSysinfo;

} // namespace

Sysinfo& sysinfo()
{
    return theSysinfo;
}

void resetSysinfo()
{
    theSysinfo = Sysinfo{};
}

} // namespace fakes

namespace SYSINFO_NAMESPACE {

int GetClientSystemInfo(TquClientSystemData& out)
{
    fakes::Sysinfo& fake = fakes::sysinfo();
    ++fake.calls;
    if (fake.onCall)
        fake.onCall();
    if (fake.status == 0)
        out = fake.record;
    return fake.status;
}

} // namespace SYSINFO_NAMESPACE
