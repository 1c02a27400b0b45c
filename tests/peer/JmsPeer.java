import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.io.Serializable;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import javax.jms.BytesMessage;
import javax.jms.DeliveryMode;
import javax.jms.MapMessage;
import javax.jms.Message;
import javax.jms.MessageConsumer;
import javax.jms.MessageProducer;
import javax.jms.Session;
import javax.jms.StreamMessage;
import javax.jms.TextMessage;
import org.apache.activemq.ActiveMQConnection;
import org.apache.activemq.ActiveMQConnectionFactory;

/**
 * The other end of the interoperability tests: sends and receives with the broker's own Java client.
 *
 * Arguments: broker address, topic to send to, topic to receive from. Reads one order a line from
 * standard input and answers each with one line, "ok" or what was asked for:
 *   text HEX        a text of UTF-16 units, four hexadecimal digits each
 *   repeat HEX N    a text of N times the one unit
 *   count N         N texts, the numbers from 0
 *   null | bytes N | map | stream | object | plain | properties
 *   compress on|off for what follows
 *   echo            waits for a text and sends the same text back; answers its length, or "null"
 */
public final class JmsPeer {
    private final Session session;
    private final MessageProducer producer;
    private final MessageConsumer consumer;

    private JmsPeer(Session session, String sendTopic, String receiveTopic) throws Exception {
        this.session = session;
        producer = session.createProducer(session.createTopic(sendTopic));
        producer.setDeliveryMode(DeliveryMode.NON_PERSISTENT);
        consumer = session.createConsumer(session.createTopic(receiveTopic));
    }

    private static String units(String hex) {
        StringBuilder text = new StringBuilder();
        for (int i = 0; i + 4 <= hex.length(); i += 4)
            text.append((char) Integer.parseInt(hex.substring(i, i + 4), 16));
        return text.toString();
    }

    private Message message(String[] words) throws Exception {
        switch (words[0]) {
        case "text":
            return session.createTextMessage(words.length > 1 ? units(words[1]) : "");
        case "repeat":
            char[] repeated = new char[Integer.parseInt(words[2])];
            Arrays.fill(repeated, units(words[1]).charAt(0));
            return session.createTextMessage(new String(repeated));
        case "null":
            return session.createTextMessage();
        case "bytes":
            BytesMessage bytes = session.createBytesMessage();
            for (int i = 0; i < Integer.parseInt(words[1]); ++i)
                bytes.writeByte((byte) i);
            return bytes;
        case "map":
            MapMessage map = session.createMapMessage();
            map.setString("name", "Gr\u00fc\u00dfe");
            map.setLong("number", 1L << 40);
            map.setBytes("bytes", new byte[] { 1, 2, 3 });
            return map;
        case "stream":
            StreamMessage stream = session.createStreamMessage();
            stream.writeInt(7);
            stream.writeString("seven");
            return stream;
        case "object":
            return session.createObjectMessage((Serializable) Arrays.asList("one", "two"));
        case "plain":
            return session.createMessage();
        case "properties":
            Message all = session.createTextMessage("with properties");
            all.setBooleanProperty("truth", true);
            all.setByteProperty("byte", (byte) -7);
            all.setShortProperty("short", (short) -300);
            all.setIntProperty("int", -70000);
            all.setLongProperty("long", -(1L << 40));
            all.setFloatProperty("float", 1.5f);
            all.setDoubleProperty("double", -2.25);
            all.setStringProperty("text", "Stra\u00dfe");
            char[] big = new char[9000];
            Arrays.fill(big, 'x');
            all.setStringProperty("big", new String(big));
            all.setJMSCorrelationID("correlation");
            all.setJMSType("kind");
            return all;
        default:
            throw new IllegalArgumentException(words[0]);
        }
    }

    private String execute(ActiveMQConnection connection, String[] words) throws Exception {
        if (words[0].equals("compress")) {
            connection.setUseCompression(words[1].equals("on"));
        } else if (words[0].equals("count")) {
            for (int i = 0; i < Integer.parseInt(words[1]); ++i)
                producer.send(session.createTextMessage(Integer.toString(i)));
        } else if (words[0].equals("echo")) {
            Message received = consumer.receive(20000);
            if (!(received instanceof TextMessage))
                return "no text: " + received;
            String text = ((TextMessage) received).getText();
            producer.send(session.createTextMessage(text));
            return text == null ? "null" : Integer.toString(text.length());
        } else {
            producer.send(message(words));
        }
        return "ok";
    }

    public static void main(String[] arguments) throws Exception {
        ActiveMQConnection connection
            = (ActiveMQConnection) new ActiveMQConnectionFactory(arguments[0]).createConnection();
        connection.start();
        JmsPeer peer = new JmsPeer(
            connection.createSession(false, Session.AUTO_ACKNOWLEDGE), arguments[1], arguments[2]);
        System.out.println("connected");
        BufferedReader orders
            = new BufferedReader(new InputStreamReader(System.in, StandardCharsets.US_ASCII));
        for (String order = orders.readLine(); order != null; order = orders.readLine()) {
            try {
                System.out.println(peer.execute(connection, order.trim().split(" ")));
            } catch (Exception problem) {
                System.out.println("failed: " + problem);
            }
        }
        connection.close();
    }
}
