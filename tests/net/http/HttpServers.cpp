#include "tests/net/http/HttpServers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/support/Process.h"

namespace kpl::test {

namespace {

constexpr char kNginx[] = "/usr/sbin/nginx";
constexpr char kOpenssl[] = "/usr/bin/openssl";

jvalue Value(int number) {
    jvalue value{};
    value.i = number;
    return value;
}

jvalue Value(jobject object) {
    jvalue value{};
    value.l = object;
    return value;
}

std::string Address(const char* scheme, int port, const std::string& path) {
    return std::string(scheme) + "://127.0.0.1:" + std::to_string(port) + path;
}

// A port that nobody uses at the moment.
int FreePort() {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (probe < 0 || bind(probe, generic, size) != 0 || getsockname(probe, generic, &size) != 0) {
        throw std::runtime_error("no free port");
    }
    close(probe);
    return ntohs(address.sin_port);
}

}  // namespace

std::string MakeContent(size_t size) {
    std::string content(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        content[i] = static_cast<char>((i * 7 + i / 251 + i / 65537) & 0xff);
    }
    return content;
}

JdkServer::JdkServer(const std::string& content) : m_class("kpl/test/TestServer"), m_port(0) {
    JNIEnv* env = JavaMachine::Get().Env();
    const jint size = static_cast<jint>(content.size());
    jbyteArray bytes = env->NewByteArray(size);
    env->SetByteArrayRegion(bytes, 0, size, reinterpret_cast<const jbyte*>(content.data()));
    m_port = m_class.CallInt("start", "([B)I", {Value(bytes)});
    env->DeleteLocalRef(bytes);
}

JdkServer::~JdkServer() {
    m_class.CallVoid("stop", "(I)V", {Value(m_port)});
}

std::string JdkServer::Url(const std::string& path) const {
    return Address("http", m_port, path);
}

int JdkServer::Requests() const {
    return m_class.CallInt("requests", "(I)I", {Value(m_port)});
}

std::string JdkServer::LastRange() const {
    return m_class.CallText("lastRange", "(I)Ljava/lang/String;", {Value(m_port)});
}

void JdkServer::Release() const {
    m_class.CallVoid("release", "(I)V", {Value(m_port)});
}

bool NginxServer::IsInstalled() {
    return access(kNginx, X_OK) == 0 && access(kOpenssl, X_OK) == 0;
}

NginxServer::NginxServer() {
    std::filesystem::create_directory(m_dir.Path() + "/www");
    std::filesystem::create_directory(m_dir.Path() + "/tmp");
    MakeCertificate();
    // Somebody else may have taken a port before nginx does.
    for (int attempt = 0; attempt < 10; ++attempt) {
        m_port = FreePort();
        m_securePort = FreePort();
        WriteConfiguration();
        Start();
        if (IsListening()) {
            return;
        }
    }
    throw std::runtime_error("nginx does not start");
}

NginxServer::~NginxServer() {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
}

void NginxServer::AddFile(const std::string& name, const std::string& content) const {
    std::ofstream(m_dir.Path() + "/www/" + name, std::ios::binary) << content;
}

std::string NginxServer::Url(const std::string& path) const {
    return Address("http", m_port, path);
}

std::string NginxServer::SecureUrl(const std::string& path) const {
    return Address("https", m_securePort, path);
}

std::string NginxServer::CertificateFile() const {
    return m_dir.Path() + "/cert.pem";
}

void NginxServer::MakeCertificate() const {
    const std::string command =
        std::string(kOpenssl) +
        " req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2"
        " -subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -keyout " +
        m_dir.Path() + "/key.pem -out " + CertificateFile() + " 2>/dev/null";
    if (system(command.c_str()) != 0) {
        throw std::runtime_error("no certificate");
    }
}

void NginxServer::WriteConfiguration() const {
    const std::string locations =
        "root www; default_type text/plain;"
        " location /to-http/ { rewrite ^/to-http(/.*)$ " +
        Url("$1") +
        " redirect; }"
        " location /to-https/ { rewrite ^/to-https(/.*)$ " +
        SecureUrl("$1") + " redirect; } ";
    std::ofstream(m_dir.Path() + "/nginx.conf")
        << "daemon off; master_process off; pid nginx.pid; error_log stderr crit;\n"
           "events { worker_connections 64; }\n"
           "http { access_log off; client_body_temp_path tmp/a; proxy_temp_path tmp/b;\n"
           "fastcgi_temp_path tmp/c; uwsgi_temp_path tmp/d; scgi_temp_path tmp/e;\n"
           "server { listen 127.0.0.1:"
        << m_port << "; " << locations << "}\n"
        << "server { listen 127.0.0.1:" << m_securePort
        << " ssl; ssl_certificate cert.pem; ssl_certificate_key key.pem; " << locations << "}\n}\n";
}

void NginxServer::Start() {
    const std::string prefix = m_dir.Path() + "/";
    const std::string file = m_dir.Path() + "/nginx.conf";
    const char* arguments[] = {kNginx,       "-p", prefix.c_str(), "-c",
                               file.c_str(), "-e", "stderr",       nullptr};
    const char* environment[] = {nullptr};
    m_pid = fork();
    if (m_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execve(kNginx, const_cast<char**>(arguments), const_cast<char**>(environment));
        _exit(127);
    }
    if (m_pid < 0) {
        throw std::runtime_error("fork failed");
    }
}

// It writes its process id when it has its ports, and ends when it cannot have them.
bool NginxServer::IsListening() {
    const std::string pidFile = m_dir.Path() + "/nginx.pid";
    bool listening = false;
    const auto settled = [&] {
        listening = std::filesystem::exists(pidFile);
        return listening || waitpid(m_pid, nullptr, WNOHANG) == m_pid;
    };
    return WaitUntil(settled) && listening;
}

TrustedCertificate::TrustedCertificate(const std::string& file) : m_class("kpl/test/TestServer") {
    JNIEnv* env = JavaMachine::Get().Env();
    jstring name = env->NewStringUTF(file.c_str());
    m_class.CallVoid("trust", "(Ljava/lang/String;)V", {Value(name)});
    env->DeleteLocalRef(name);
}

TrustedCertificate::~TrustedCertificate() {
    m_class.CallVoid("trust", "(Ljava/lang/String;)V", {Value(static_cast<jobject>(nullptr))});
}

}  // namespace kpl::test
