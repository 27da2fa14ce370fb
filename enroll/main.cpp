#include "enroll/enroll_command.h"
#include "platform/process.h"

#include <iostream>

int main(int argc, char** argv)
{
    tq::prepareProcess();
    return enroll::runCommand(argc, argv, std::cout, std::cerr);
}
