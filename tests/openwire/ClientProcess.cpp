// Another process with a connection: "openwire_client URI CLIENT-ID" says "in" or the refusal, then
// stays until its input ends.
#include <cms/ConnectionFactory.h>

#include <iostream>
#include <memory>
#include <string>

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    try {
        const std::unique_ptr<cms::ConnectionFactory> factory(
            cms::ConnectionFactory::createCMSConnectionFactory(argv[1]));
        const std::unique_ptr<cms::Connection> connection(factory->createConnection());
        connection->setClientID(argv[2]);
        std::cout << "in" << std::endl;
        std::string line;
        std::getline(std::cin, line);
    } catch (const cms::CMSException &ex) {
        std::cout << ex.getMessage() << std::endl;
    }
    return 0;
}
