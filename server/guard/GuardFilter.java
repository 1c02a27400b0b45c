package kvx.broker;

import java.io.IOException;
import java.net.InetAddress;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.atomic.AtomicLong;
import javax.jms.JMSException;
import javax.jms.JMSSecurityException;
import org.apache.activemq.advisory.AdvisorySupport;
import org.apache.activemq.broker.Broker;
import org.apache.activemq.broker.BrokerFilter;
import org.apache.activemq.broker.ConnectionContext;
import org.apache.activemq.broker.ProducerBrokerExchange;
import org.apache.activemq.broker.region.Subscription;
import org.apache.activemq.command.ActiveMQDestination;
import org.apache.activemq.command.ActiveMQTextMessage;
import org.apache.activemq.command.ActiveMQTopic;
import org.apache.activemq.command.ConnectionInfo;
import org.apache.activemq.command.ConsumerInfo;
import org.apache.activemq.command.DestinationInfo;
import org.apache.activemq.command.Message;
import org.apache.activemq.command.MessageId;
import org.apache.activemq.command.ProducerId;
import org.apache.activemq.command.ProducerInfo;
import org.apache.activemq.command.RemoveSubscriptionInfo;
import org.apache.activemq.security.SecurityContext;
import org.slf4j.Logger;
import org.slf4j.LoggerFactory;

/**
 * The guard itself. kvx-server, known by its account, is heard. Everybody else is a client: his ID
 * is the e-mail of somebody who has a session, he may listen to the topic of notifications and to
 * nothing else, and what he sends is dropped.
 *
 * The server talks to the guard by messages to TALK, which go no further: "hello" is refused with
 * ANSWER, so that nobody but a guarded broker can give this answer; anything else is for
 * LiveSessions.
 */
final class GuardFilter extends BrokerFilter {
    private static final Logger LOG = LoggerFactory.getLogger(GuardFilter.class);
    private static final ActiveMQDestination NOTIFICATIONS = new ActiveMQTopic("com.orvane.kvx");
    private static final ActiveMQDestination TALK = new ActiveMQTopic("com.orvane.kvx.guard");
    private static final String ANSWER = "kvx-broker-guard 1";
    /** A client that logs out, or logs in anew, leaves by itself within this time. */
    private static final long FAREWELL_MS = 2000;

    private static final class Client {
        final String id;
        final InetAddress address;
        long goneSince; // 0: has a session

        Client(String id, InetAddress address) {
            this.id = id;
            this.address = address;
        }
    }

    private final String server;
    private final LiveSessions sessions = new LiveSessions();
    private final Map<ConnectionContext, Client> clients = new ConcurrentHashMap<>();
    // Whoever knows the ID of a connection can end it by using it again, so clients see ours.
    private final ProducerId sender = new ProducerId("ID:kvx:0:0:1");
    private final AtomicLong sent = new AtomicLong();
    private volatile boolean heard;

    GuardFilter(Broker next, String server) {
        super(next);
        this.server = server;
    }

    @Override
    public void addConnection(ConnectionContext context, ConnectionInfo info) throws Exception {
        if (server.equals(info.getUserName())) {
            super.addConnection(context, info);
            if (!isServer(context)) {
                super.removeConnection(context, info, null);
                throw new SecurityException(ANSWER + ": nothing has checked the password of " + server);
            }
            return;
        }
        Client client = new Client(info.getClientId(), peerOf(context.getConnection().getRemoteAddress()));
        if (client.id == null || !sessions.awaitLive(client.id, client.address))
            throw new SecurityException(ANSWER + ": no session of " + client.id);
        clients.put(context, client);
        try {
            super.addConnection(context, info);
        } catch (Exception refused) {
            clients.remove(context);
            throw refused;
        }
    }

    @Override
    public void removeConnection(ConnectionContext context, ConnectionInfo info, Throwable error) throws Exception {
        clients.remove(context);
        super.removeConnection(context, info, error);
    }

    @Override
    public Subscription addConsumer(ConnectionContext context, ConsumerInfo info) throws Exception {
        if (isServer(context))
            return super.addConsumer(context, info);
        ActiveMQDestination wanted = info.getDestination();
        // Some client libraries listen to what nothing is ever sent to here.
        boolean silent = AdvisorySupport.TEMP_DESTINATION_COMPOSITE_ADVISORY_TOPIC.equals(wanted);
        if (!NOTIFICATIONS.equals(wanted) && !silent)
            throw new JMSSecurityException(ANSWER + ": nobody may listen to " + wanted);
        // A selector is worked out for each message, on the thread that serves the server.
        if (info.getSubscriptionName() != null || info.isBrowser() || info.isNetworkSubscription()
                || info.getSelector() != null || info.getAdditionalPredicate() != null)
            throw new JMSSecurityException(ANSWER + ": only plain subscriptions are accepted");
        info.setDispatchAsync(true); // else a client that stands still would hold the server up
        info.setRetroactive(false);
        return super.addConsumer(context, info);
    }

    @Override
    public void addProducer(ConnectionContext context, ProducerInfo info) throws Exception {
        ActiveMQDestination wanted = info.getDestination();
        if (!isServer(context) && wanted != null && !NOTIFICATIONS.equals(wanted))
            throw new JMSSecurityException(ANSWER + ": nobody may send to " + wanted);
        super.addProducer(context, info);
    }

    @Override
    public void addDestinationInfo(ConnectionContext context, DestinationInfo info) throws Exception {
        refuseClient(context);
        super.addDestinationInfo(context, info);
    }

    @Override
    public void removeDestinationInfo(ConnectionContext context, DestinationInfo info) throws Exception {
        refuseClient(context);
        super.removeDestinationInfo(context, info);
    }

    @Override
    public void removeSubscription(ConnectionContext context, RemoveSubscriptionInfo info) throws Exception {
        refuseClient(context);
        super.removeSubscription(context, info);
    }

    @Override
    public void send(ProducerBrokerExchange exchange, Message message) throws Exception {
        if (!isServer(exchange.getConnectionContext()))
            return;
        if (TALK.equals(message.getDestination())) {
            hear(message);
            return;
        }
        if (!sessions.awaitFresh())
            throw new JMSException(ANSWER + ": the server does not say who has a session");
        message.setProducerId(sender);
        message.setMessageId(new MessageId(sender, sent.incrementAndGet()));
        super.send(exchange, message);
    }

    private void hear(Message message) throws JMSException {
        String text = message instanceof ActiveMQTextMessage ? ((ActiveMQTextMessage) message).getText() : null;
        if (text == null || text.equals("hello"))
            throw new JMSException(ANSWER);
        try {
            sessions.hear(text);
        } catch (IllegalArgumentException error) {
            throw new JMSException(ANSWER + ": " + error.getMessage());
        }
        if (!heard)
            LOG.info("The server is heard; users with a session: {}", sessions.size());
        heard = true;
        cutOff();
    }

    /** Runs at each word of the server: as long as it keeps silent, nothing reaches a client anyway. */
    private synchronized void cutOff() {
        long now = System.nanoTime();
        clients.forEach((context, client) -> {
            if (sessions.isLive(client.id, client.address)) {
                client.goneSince = 0;
            } else if (client.goneSince == 0) {
                client.goneSince = now;
            } else if (now - client.goneSince > FAREWELL_MS * 1_000_000) {
                LOG.info("Cut off: {} has no session any more", client.id);
                clients.remove(context);
                context.getConnection().serviceExceptionAsync(new IOException("the session is over"));
            }
        });
    }

    private boolean isServer(ConnectionContext context) {
        SecurityContext checked = context.getSecurityContext();
        return checked != null && server.equals(checked.getUserName());
    }

    private void refuseClient(ConnectionContext context) throws JMSException {
        if (!isServer(context))
            throw new JMSSecurityException(ANSWER + ": only the server may do that");
    }

    /** The address in "tcp://127.0.0.1:40000" or "tcp://[0:0:0:0:0:0:0:1]:40000". */
    private static InetAddress peerOf(String remote) {
        String text = remote == null ? "" : remote.substring(remote.lastIndexOf('/') + 1);
        int port = text.lastIndexOf(':');
        return LiveSessions.addressOf((port < 0 ? text : text.substring(0, port)).replaceAll("[\\[\\]]|%.*", ""));
    }
}
