package com.kapelo.net;

import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.net.HttpURLConnection;
import java.net.URL;
import java.net.URLConnection;
import java.util.Map;
import java.util.TreeMap;

/**
 * The Java half of the native HTTP client: reads one HTTP or HTTPS resource, with the classes that every Java 8 and
 * every Android has. Native code calls the static methods, by these names and signatures; nothing is thrown at it.
 *
 * <p>Redirects are followed, also from http to https but not back. Request properties that carry a secret go only to
 * the server they were meant for. One thread at a time uses a connection; SetTimeouts is for any thread.
 */
public final class CHttpClient {
    private static final int MAX_REDIRECTS = 20;

    private static volatile int connectTimeoutMs = 15000;
    private static volatile int readTimeoutMs = 30000;

    private final URL url;
    private final Map<String, String> requestProperties = newPropertyMap();

    // The answer to Open. Seeking asks again, but this stays.
    private final URL connectedUrl;
    private final int responseCode;
    private final String responseText;
    private final Map<String, String> responseProperties;
    private final long length; // -1: not known

    private HttpURLConnection connection;
    private InputStream body; // null: the answer was not a success, there is nothing to read
    private long position;
    private boolean broken; // the body ended before its time

    /** How long connecting and waiting for data may take, in milliseconds; 0 is without limit. For later Opens. */
    public static void SetTimeouts(int connectMs, int readMs) {
        connectTimeoutMs = Math.max(connectMs, 0);
        readTimeoutMs = Math.max(readMs, 0);
    }

    /** Sends the request and waits for the answer's head; null if there is none. */
    public static CHttpClient Open(String url, Object requestProperties) {
        try {
            return new CHttpClient(url, requestProperties);
        } catch (IOException | RuntimeException e) {
            return null;
        }
    }

    /** Reads at least one byte, at most size. 0 at the end, -1 on an error or if the answer was not a success. */
    public static int Read(CHttpClient client, byte[] buffer, int size) {
        if (client == null || buffer == null || size < 1) {
            return -1;
        }
        return client.read(buffer, Math.min(size, buffer.length));
    }

    /** How many bytes can be read without waiting, as far as that is known. */
    public static int GetAvailableDataLength(CHttpClient client) {
        try {
            return client != null && client.body != null ? client.body.available() : 0;
        } catch (IOException | RuntimeException e) {
            return 0;
        }
    }

    /**
     * Goes to a position: flag 0 counts from the start, 1 from the current position, 2 from the end. Returns 0, or -1
     * and nothing has changed: before the start, behind the end, from an end that is not known, no answer.
     */
    public static int Seek(CHttpClient client, int offset, int flag) {
        try {
            return client != null && client.body != null && client.seek(offset, flag) ? 0 : -1;
        } catch (IOException | RuntimeException e) {
            return -1;
        }
    }

    public static void Close(CHttpClient client) {
        if (client != null) {
            client.drop();
            client.body = null;
        }
    }

    /** The length in bytes; -1 if the server did not say it, if it does not fit, or after an answer without success. */
    public static int GetTotalLength(CHttpClient client) {
        return client != null && client.length <= Integer.MAX_VALUE ? (int) client.length : -1;
    }

    public static int GetResposnseCode(CHttpClient client) {
        return client != null ? client.responseCode : 0;
    }

    public static String GetResponseText(CHttpClient client) {
        return client != null ? client.responseText : null;
    }

    /** A header of the answer, by its name in any case; of several the last one. */
    public static String GetResponseProperty(CHttpClient client, String name) {
        return client != null && name != null ? client.responseProperties.get(name) : null;
    }

    public static Object CreateRequestPropertyMap() {
        return newPropertyMap();
    }

    @SuppressWarnings("unchecked")
    public static void SetRequestProperty(Object map, String name, String value) {
        if (map instanceof Map && name != null) {
            ((Map<String, String>) map).put(name, value != null ? value : "");
        }
    }

    public static String GetRequestProperty(Object map, String name) {
        return map instanceof Map && name != null ? (String) ((Map<?, ?>) map).get(name) : null;
    }

    /** The URL given to Open. */
    public static String GetUrl(CHttpClient client) {
        return client != null ? client.url.toString() : null;
    }

    /** The URL that answered, after all redirects. */
    public static String GetConnectedUrl(CHttpClient client) {
        return client != null ? client.connectedUrl.toString() : null;
    }

    private CHttpClient(String url, Object requestProperties) throws IOException {
        this.url = new URL(url);
        if (requestProperties instanceof Map) {
            for (Map.Entry<?, ?> property : ((Map<?, ?>) requestProperties).entrySet()) {
                this.requestProperties.put((String) property.getKey(), (String) property.getValue());
            }
        }
        connection = connect(this.url, 0);
        connectedUrl = connection.getURL();
        responseCode = connection.getResponseCode();
        responseText = connection.getResponseMessage();
        responseProperties = readProperties(connection);
        final boolean success = responseCode >= 200 && responseCode < 300;
        length = success ? readLength(connection) : -1;
        if (success) {
            body = openBody(connection);
        } else {
            connection.disconnect();
        }
    }

    private static InputStream openBody(HttpURLConnection answer) throws IOException {
        try {
            return answer.getInputStream();
        } catch (IOException | RuntimeException e) {
            answer.disconnect();
            throw e;
        }
    }

    private int read(byte[] buffer, int size) {
        if (body == null || broken) {
            return -1;
        }
        try {
            final int count = body.read(buffer, 0, size);
            if (count > 0) {
                position += count;
                return count;
            }
            // HttpURLConnection does not complain about a body that is too short.
            broken = position < length;
        } catch (IOException | RuntimeException e) {
            broken = true;
        }
        return broken ? -1 : 0;
    }

    private boolean seek(int offset, int flag) throws IOException {
        final long target = targetOf(offset, flag);
        if (target < 0 || (length >= 0 && target > length)) {
            return false;
        }
        if (target == position && !broken) {
            return true;
        }
        if (target == length) {
            // There is nothing to ask for: a server refuses an empty range.
            replaceBody(null, new ByteArrayInputStream(new byte[0]), target);
            return true;
        }
        return requestFrom(target);
    }

    // Negative if it cannot be said.
    private long targetOf(int offset, int flag) {
        switch (flag) {
            case 0:
                return offset;
            case 1:
                return position + offset;
            case 2:
                return length >= 0 ? length + offset : -1;
            default:
                return -1;
        }
    }

    // Asks for the rest from there, and only then lets go of the body that is being read.
    private boolean requestFrom(long target) throws IOException {
        final HttpURLConnection next = connect(connectedUrl, target);
        boolean ready = false;
        try {
            final long start = startOf(next, target);
            if (start >= 0) {
                final InputStream rest = next.getInputStream();
                ready = skip(rest, target - start);
                if (ready) {
                    replaceBody(next, rest, target);
                }
            }
        } finally {
            if (!ready) {
                next.disconnect();
            }
        }
        return ready;
    }

    // Where the body of an answer begins: at `target`, or at 0 if the server does not know ranges. -1 for a failure,
    // and for a resource whose length is another one by now.
    private long startOf(HttpURLConnection answer, long target) throws IOException {
        final int code = answer.getResponseCode();
        if (code == HttpURLConnection.HTTP_OK) {
            return readLength(answer) == length ? 0 : -1;
        }
        final String range = answer.getHeaderField("Content-Range"); // bytes 100-199/1000
        if (code != HttpURLConnection.HTTP_PARTIAL || range == null || !range.startsWith("bytes ")) {
            return -1;
        }
        final int dash = range.indexOf('-');
        final int slash = range.indexOf('/');
        if (dash < 0 || slash < dash) {
            return -1;
        }
        final String total = range.substring(slash + 1).trim();
        if (length >= 0 && !total.equals("*") && Long.parseLong(total) != length) {
            return -1;
        }
        final long start = Long.parseLong(range.substring("bytes ".length(), dash).trim());
        return start == target ? start : -1;
    }

    private static boolean skip(InputStream in, long count) throws IOException {
        final byte[] waste = new byte[8192];
        long left = count;
        while (left > 0) {
            final int skipped = in.read(waste, 0, (int) Math.min(left, waste.length));
            if (skipped < 1) {
                return false;
            }
            left -= skipped;
        }
        return true;
    }

    private void replaceBody(HttpURLConnection newConnection, InputStream newBody, long newPosition) {
        drop();
        connection = newConnection;
        body = newBody;
        position = newPosition;
        broken = false;
    }

    // A connection whose body was read to its end can serve the next request; any other one is cut.
    private void drop() {
        try {
            if (body != null && position == length) {
                body.close();
            } else if (connection != null) {
                connection.disconnect();
            }
        } catch (IOException | RuntimeException e) {
            connection.disconnect();
        }
        connection = null;
    }

    // The answer to a request for the bytes from `start` on, after all redirects.
    private HttpURLConnection connect(URL first, long start) throws IOException {
        URL current = first;
        for (int redirects = 0; redirects <= MAX_REDIRECTS; ++redirects) {
            final HttpURLConnection answer = request(current, start);
            boolean last = false;
            try {
                if (answer.getResponseCode() < 0) {
                    throw new IOException("not HTTP");
                }
                final URL next = redirectOf(answer);
                if (next == null) {
                    last = true;
                    return answer;
                }
                current = next;
            } finally {
                if (!last) {
                    answer.disconnect();
                }
            }
        }
        throw new IOException("too many redirects");
    }

    private HttpURLConnection request(URL target, long start) throws IOException {
        final URLConnection opened = target.openConnection();
        if (!(opened instanceof HttpURLConnection)) {
            throw new IOException("not HTTP");
        }
        final HttpURLConnection request = (HttpURLConnection) opened;
        request.setInstanceFollowRedirects(false);
        request.setUseCaches(false);
        request.setConnectTimeout(connectTimeoutMs);
        request.setReadTimeout(readTimeoutMs);
        // Lengths and positions count the bytes that are read.
        request.setRequestProperty("Accept-Encoding", "identity");
        for (Map.Entry<String, String> property : requestProperties.entrySet()) {
            if (isSameServer(target, url) || !isSecret(property.getKey())) {
                request.setRequestProperty(property.getKey(), property.getValue());
            }
        }
        if (start > 0) {
            request.setRequestProperty("Range", "bytes=" + start + "-");
        }
        return request;
    }

    // Null if the answer is no redirect, or not one to follow.
    private static URL redirectOf(HttpURLConnection answer) throws IOException {
        final int code = answer.getResponseCode();
        final String location = answer.getHeaderField("Location");
        final boolean redirect = (code >= 301 && code <= 303) || code == 307 || code == 308;
        if (!redirect || location == null) {
            return null;
        }
        final URL from = answer.getURL();
        final URL to = new URL(from, location);
        final boolean secure = to.getProtocol().equals("https");
        return secure || (to.getProtocol().equals("http") && from.getProtocol().equals("http")) ? to : null;
    }

    private static boolean isSameServer(URL a, URL b) {
        return a.getProtocol().equals(b.getProtocol()) && a.getHost().equalsIgnoreCase(b.getHost())
                && portOf(a) == portOf(b);
    }

    private static int portOf(URL url) {
        return url.getPort() >= 0 ? url.getPort() : url.getDefaultPort();
    }

    private static boolean isSecret(String property) {
        return property.equalsIgnoreCase("Authorization") || property.equalsIgnoreCase("Cookie");
    }

    private static long readLength(HttpURLConnection answer) {
        final String text = answer.getHeaderField("Content-Length");
        if (text == null || answer.getHeaderField("Transfer-Encoding") != null) {
            return -1;
        }
        try {
            return Math.max(Long.parseLong(text.trim()), -1);
        } catch (NumberFormatException e) {
            return -1;
        }
    }

    // Copied, because a connection that was cut forgets them.
    private static Map<String, String> readProperties(HttpURLConnection answer) {
        final Map<String, String> properties = newPropertyMap();
        for (int i = 0; answer.getHeaderField(i) != null; ++i) {
            final String name = answer.getHeaderFieldKey(i);
            if (name != null) { // the status line has none
                properties.put(name, answer.getHeaderField(i));
            }
        }
        return properties;
    }

    private static Map<String, String> newPropertyMap() {
        return new TreeMap<String, String>(String.CASE_INSENSITIVE_ORDER);
    }
}
