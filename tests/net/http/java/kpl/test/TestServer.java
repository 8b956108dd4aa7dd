package kpl.test;

import com.sun.net.httpserver.HttpExchange;
import com.sun.net.httpserver.HttpServer;
import java.io.FileInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.nio.charset.StandardCharsets;
import java.security.GeneralSecurityException;
import java.security.KeyStore;
import java.security.cert.CertificateFactory;
import java.util.List;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicReference;
import javax.net.ssl.HttpsURLConnection;
import javax.net.ssl.SSLContext;
import javax.net.ssl.SSLSocketFactory;
import javax.net.ssl.TrustManagerFactory;

/** HTTP servers on loopback for the tests, known by their ports; each path misbehaves in its own way. */
public final class TestServer {
    private static final Map<Integer, TestServer> servers = new ConcurrentHashMap<>();
    private static final SSLSocketFactory usualTrust = HttpsURLConnection.getDefaultSSLSocketFactory();
    private static final AtomicReference<String> uncaught = new AtomicReference<>("");

    private final HttpServer server;
    private final ExecutorService threads = Executors.newCachedThreadPool();
    private final byte[] content;
    private final AtomicInteger requests = new AtomicInteger();
    private final CountDownLatch released = new CountDownLatch(1);
    private volatile String lastRange = "";

    public static int start(byte[] content) throws IOException {
        final TestServer server = new TestServer(content);
        servers.put(server.port(), server);
        return server.port();
    }

    public static void stop(int port) {
        final TestServer server = servers.remove(port);
        server.released.countDown();
        server.server.stop(0);
        server.threads.shutdownNow();
    }

    /** Lets go of everything that a path holds back. */
    public static void release(int port) {
        servers.get(port).released.countDown();
    }

    public static int requests(int port) {
        return servers.get(port).requests.get();
    }

    /** The Range header of the last request, empty if it had none. */
    public static String lastRange(int port) {
        return servers.get(port).lastRange;
    }

    /** Trusts the certificate in a file, for connections made from now on; with null only the usual ones. */
    public static void trust(String file) throws IOException, GeneralSecurityException {
        if (file == null) {
            HttpsURLConnection.setDefaultSSLSocketFactory(usualTrust);
            return;
        }
        final KeyStore store = KeyStore.getInstance(KeyStore.getDefaultType());
        store.load(null, null);
        try (InputStream in = new FileInputStream(file)) {
            store.setCertificateEntry("test", CertificateFactory.getInstance("X.509").generateCertificate(in));
        }
        final TrustManagerFactory trust = TrustManagerFactory.getInstance(TrustManagerFactory.getDefaultAlgorithm());
        trust.init(store);
        final SSLContext context = SSLContext.getInstance("TLS");
        context.init(null, trust.getTrustManagers(), null);
        HttpsURLConnection.setDefaultSSLSocketFactory(context.getSocketFactory());
    }

    /** Keeps what ends a thread, instead of printing it. */
    public static void catchUncaught() {
        Thread.setDefaultUncaughtExceptionHandler((thread, exception) -> uncaught.set(exception.toString()));
    }

    /** Loads a native library, as an application does. */
    public static void load(String file) {
        System.load(file);
    }

    public static String lastUncaught() {
        return uncaught.getAndSet("");
    }

    private TestServer(byte[] content) throws IOException {
        this.content = content;
        server = HttpServer.create(new InetSocketAddress(InetAddress.getByName("127.0.0.1"), 0), 0);
        server.setExecutor(threads);
        handle("/file", exchange -> send(exchange, 0, content.length));
        handle("/ranges", this::sendRange);
        handle("/chunked", exchange -> {
            exchange.sendResponseHeaders(200, 0);
            exchange.getResponseBody().write(content);
        });
        handle("/empty", exchange -> exchange.sendResponseHeaders(200, -1));
        handle("/missing", exchange -> sendText(exchange, 404, "there is no such thing"));
        handle("/to/", exchange -> redirect(exchange, 302, exchange.getRequestURI().getPath().substring(3)));
        handle("/absolute", exchange -> redirect(exchange, 301, exchange.getRequestURI().getQuery()));
        handle("/loop", exchange -> redirect(exchange, 307, "/loop"));
        handle("/echo", this::echo);
        handle("/silent", exchange -> released.await());
        handle("/stalls", exchange -> {
            exchange.sendResponseHeaders(200, content.length);
            exchange.getResponseBody().write(content, 0, 1000);
            exchange.getResponseBody().flush();
            released.await();
            exchange.getResponseBody().write(content, 1000, content.length - 1000);
        });
        handle("/dribbles", this::dribble);
        handle("/short", exchange -> {
            exchange.sendResponseHeaders(200, content.length);
            exchange.getResponseBody().write(content, 0, content.length / 2);
        });
        handle("/liar", exchange -> {
            // Answers a range with another one.
            exchange.getResponseHeaders().set("Content-Range", "bytes 1-1/" + content.length);
            send(exchange, exchange.getRequestHeaders().containsKey("Range") ? 206 : 200, 0, content.length);
        });
        handle("/grows", exchange -> {
            // Is another resource by the time of the second request.
            final boolean again = exchange.getRequestHeaders().containsKey("Range");
            exchange.getResponseHeaders().set("Content-Range", "bytes 10-99/100");
            send(exchange, again ? 206 : 200, 0, again ? 90 : content.length);
        });
        handle("/shrinks", exchange -> send(exchange, 0, content.length / requests.get()));
        server.start();
    }

    private interface Handler {
        void handle(HttpExchange exchange) throws IOException, InterruptedException;
    }

    private void handle(String path, Handler handler) {
        server.createContext(path, exchange -> {
            requests.incrementAndGet();
            final String range = exchange.getRequestHeaders().getFirst("Range");
            lastRange = range != null ? range : "";
            try {
                handler.handle(exchange);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            } finally {
                exchange.close();
            }
        });
    }

    private int port() {
        return server.getAddress().getPort();
    }

    private void send(HttpExchange exchange, int start, int end) throws IOException {
        send(exchange, 200, start, end);
    }

    private void send(HttpExchange exchange, int code, int start, int end) throws IOException {
        exchange.sendResponseHeaders(code, end - start);
        exchange.getResponseBody().write(content, start, end - start);
    }

    private void sendText(HttpExchange exchange, int code, String text) throws IOException {
        final byte[] bytes = text.getBytes(StandardCharsets.UTF_8);
        exchange.sendResponseHeaders(code, bytes.length);
        exchange.getResponseBody().write(bytes);
    }

    // Only the form that names a start: bytes=100-
    private void sendRange(HttpExchange exchange) throws IOException {
        if (lastRange.isEmpty()) {
            send(exchange, 0, content.length);
            return;
        }
        final int start = Integer.parseInt(lastRange.substring("bytes=".length(), lastRange.length() - 1));
        if (start >= content.length) {
            exchange.sendResponseHeaders(416, -1);
            return;
        }
        exchange.getResponseHeaders().set("Content-Range",
                "bytes " + start + "-" + (content.length - 1) + "/" + content.length);
        send(exchange, 206, start, content.length);
    }

    private static void redirect(HttpExchange exchange, int code, String to) throws IOException {
        exchange.getResponseHeaders().set("Location", to);
        exchange.sendResponseHeaders(code, -1);
    }

    private void echo(HttpExchange exchange) throws IOException {
        final StringBuilder text = new StringBuilder();
        for (Map.Entry<String, List<String>> header : exchange.getRequestHeaders().entrySet()) {
            text.append(header.getKey()).append(": ").append(header.getValue().get(0)).append('\n');
        }
        exchange.getResponseHeaders().set("X-Answer", "forty-two");
        sendText(exchange, 200, text.toString());
    }

    // A body of 20 pieces, each some milliseconds after the one before.
    private void dribble(HttpExchange exchange) throws IOException, InterruptedException {
        final int piece = 37;
        exchange.sendResponseHeaders(200, 20 * piece);
        final OutputStream out = exchange.getResponseBody();
        for (int i = 0; i < 20; ++i) {
            Thread.sleep(5); // allow-sleep: a slow server
            out.write(content, i * piece, piece);
            out.flush();
        }
    }
}
