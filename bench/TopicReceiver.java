import javax.jms.Connection;
import javax.jms.Session;
import org.apache.activemq.ActiveMQConnectionFactory;

/**
 * A subscriber with the broker's own Java client. Arguments: broker address, topic. Says "ready",
 * then for each message when it arrived, in nanoseconds of the machine's monotonic clock. Ends with
 * standard input.
 */
public final class TopicReceiver {
    private TopicReceiver() { }

    public static void main(String[] arguments) throws Exception {
        Connection connection = new ActiveMQConnectionFactory(arguments[0]).createConnection();
        Session session = connection.createSession(false, Session.AUTO_ACKNOWLEDGE);
        session.createConsumer(session.createTopic(arguments[1]))
            .setMessageListener(message -> System.out.println(System.nanoTime()));
        connection.start();
        System.out.println("ready");
        while (System.in.read() >= 0) { }
        connection.close();
    }
}
