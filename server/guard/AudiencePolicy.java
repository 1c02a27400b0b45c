package kvx.broker;

import java.io.IOException;
import java.util.Arrays;
import java.util.HashSet;
import java.util.Set;
import org.apache.activemq.broker.ConnectionContext;
import org.apache.activemq.command.Message;
import org.apache.activemq.security.MessageAuthorizationPolicy;

/**
 * A message with the property "kvxTo" (e-mails joined by ";") is for these client IDs only; one
 * without it is for everybody.
 */
public final class AudiencePolicy implements MessageAuthorizationPolicy {
    private static final class Audience {
        final String text;
        final Set<String> emails;

        Audience(String text) {
            this.text = text;
            emails = new HashSet<>(Arrays.asList(text.split(";")));
        }
    }

    // One message is offered to all subscribers in turn.
    private volatile Audience latest = new Audience("");

    @Override
    public boolean isAllowedToConsume(ConnectionContext context, Message message) {
        Object to;
        try {
            to = message.getProperty("kvxTo");
        } catch (IOException unreadable) {
            return false;
        }
        if (to == null)
            return true;
        Audience audience = latest;
        if (!audience.text.equals(to.toString())) {
            audience = new Audience(to.toString());
            latest = audience;
        }
        return context.getClientId() != null && audience.emails.contains(context.getClientId());
    }
}
