package kvx.broker;

import org.apache.activemq.broker.Broker;
import org.apache.activemq.broker.BrokerPlugin;

/** What stands in the broker's configuration: puts the guard in front of all other plug-ins. */
public final class BrokerGuard implements BrokerPlugin {
    private String server;

    /** User name of kvx-server's account. The password is the authentication plug-in's matter. */
    public void setServer(String name) {
        server = name;
    }

    @Override
    public Broker installPlugin(Broker broker) {
        if (server == null || server.isEmpty())
            throw new IllegalStateException("kvx-broker-guard needs the name of the server's account");
        return new GuardFilter(broker, server);
    }
}
