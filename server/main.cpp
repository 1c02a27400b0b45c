#include "admin/CommandLine.h"

int main(int argc, char **argv)
{
    return kvx::server::runCommandLine(argc, argv);
}
