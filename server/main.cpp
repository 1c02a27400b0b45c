#include "admin/CommandLine.h"
#include "store/Db.h"

int main(int argc, char **argv)
{
    kvx::server::Db::prepareEngine();
    return kvx::server::runCommandLine(argc, argv);
}
