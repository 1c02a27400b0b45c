package kvx.broker;

import java.net.InetAddress;
import java.net.UnknownHostException;
import java.util.Collections;
import java.util.HashMap;
import java.util.HashSet;
import java.util.Map;
import java.util.Set;
import java.util.regex.Pattern;

/**
 * Who has a session, as kvx-server last said. The server says it whole each time, at least once a
 * second, and waits for the receipt before it reads its database again.
 */
final class LiveSessions {
    /** How long the last word of the server counts. */
    private static final long SILENCE_LIMIT_MS = 5000;

    private static final Pattern ADDRESS = Pattern.compile("[0-9a-fA-F:.]+");

    private enum Rule { SESSION, ADDRESS, OFF }

    private Rule rule = Rule.SESSION;
    private Map<String, Set<InetAddress>> addresses = Collections.emptyMap();
    private long heardAt;
    private long heardTimes;

    /**
     * Takes "sessions RULE", then a line "E-MAIL TAB ADDRESS" for each session.
     *
     * @throws IllegalArgumentException when it is something else; nothing has changed then
     */
    void hear(String text) {
        String[] lines = text.split("\n");
        Rule newRule = ruleOf(lines[0]);
        Map<String, Set<InetAddress>> newAddresses = new HashMap<>();
        for (int i = 1; i < lines.length; ++i) {
            int tab = lines[i].indexOf('\t');
            if (tab < 1)
                throw new IllegalArgumentException("a session is \"E-MAIL TAB ADDRESS\", not \"" + lines[i] + '"');
            InetAddress address = addressOf(lines[i].substring(tab + 1));
            Set<InetAddress> known = newAddresses.computeIfAbsent(lines[i].substring(0, tab), key -> new HashSet<>());
            if (address != null)
                known.add(address);
        }
        synchronized (this) {
            rule = newRule;
            addresses = newAddresses;
            heardAt = System.nanoTime();
            ++heardTimes;
            notifyAll();
        }
    }

    synchronized int size() {
        return addresses.size();
    }

    /** Whether a connection from there may stay under that client ID. */
    synchronized boolean isLive(String clientId, InetAddress address) {
        if (rule == Rule.OFF)
            return true;
        Set<InetAddress> known = addresses.get(clientId);
        return known != null && (rule == Rule.SESSION || known.contains(address));
    }

    /**
     * Whether a new connection is accepted. A client connects as soon as it has logged in, perhaps
     * before the server's word has come: the word under way may be older than the login, the one
     * after it is not. False when the server keeps silent.
     */
    synchronized boolean awaitLive(String clientId, InetAddress address) throws InterruptedException {
        long decided = heardTimes + 2;
        long end = System.nanoTime() + SILENCE_LIMIT_MS * 1_000_000;
        while (!isFresh() || !isLive(clientId, address)) {
            if (heardTimes >= decided || !await(end))
                return false;
        }
        return true;
    }

    /** Waits until the server has said lately who has a session; false when it keeps silent. */
    synchronized boolean awaitFresh() throws InterruptedException {
        long end = System.nanoTime() + SILENCE_LIMIT_MS * 1_000_000;
        while (!isFresh()) {
            if (!await(end))
                return false;
        }
        return true;
    }

    /** Of "127.0.0.1", "::1" and the like; null of anything else. Never asks a name server. */
    static InetAddress addressOf(String literal) {
        if (!ADDRESS.matcher(literal).matches())
            return null;
        try {
            return InetAddress.getByName(literal);
        } catch (UnknownHostException notAnAddress) {
            return null;
        }
    }

    private static Rule ruleOf(String line) {
        switch (line) {
        case "sessions session":
            return Rule.SESSION;
        case "sessions address":
            return Rule.ADDRESS;
        case "sessions off":
            return Rule.OFF;
        default:
            throw new IllegalArgumentException("\"sessions RULE\" is missing");
        }
    }

    private boolean isFresh() {
        return heardTimes > 0 && System.nanoTime() - heardAt < SILENCE_LIMIT_MS * 1_000_000;
    }

    private boolean await(long end) throws InterruptedException {
        long left = (end - System.nanoTime()) / 1_000_000;
        if (left <= 0)
            return false;
        wait(left);
        return true;
    }
}
