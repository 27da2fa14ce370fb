#include "cmd/driver.h"
#include "platform/process.h"

int main(int argc, char** argv)
{
    tq::prepareProcess();
    return TQCLNTDB::runHostDatabaseCommand(argc, argv);
}
