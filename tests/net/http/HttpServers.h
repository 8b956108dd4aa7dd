// Real HTTP servers on 127.0.0.1 for tests that have a Java machine: the JDK's own, with paths that
// misbehave, and nginx with files, ranges and https.
#ifndef KPL_TESTS_NET_HTTP_HTTPSERVERS_H_
#define KPL_TESTS_NET_HTTP_HTTPSERVERS_H_

#include <sys/types.h>

#include <memory>
#include <string>

#include "tests/net/http/JavaMachine.h"
#include "tests/support/TempDir.h"

namespace kpl::test {

// `size` bytes of a sequence without a short period.
std::string MakeContent(size_t size);

// The server of java/kpl/test/TestServer.java, which says what each path does.
class JdkServer {
public:
    explicit JdkServer(const std::string& content);
    ~JdkServer();
    JdkServer(const JdkServer&) = delete;
    JdkServer& operator=(const JdkServer&) = delete;

    std::string Url(const std::string& path) const;
    int Requests() const;
    std::string LastRange() const;
    void Release() const;  // everything that a path holds back

private:
    JavaClass m_class;
    int m_port;
};

// nginx with the files of a fresh directory, by http and by https with a certificate of its own for
// 127.0.0.1. On both, /to-http/x and /to-https/x redirect to x. It ends with the test process at
// the latest.
class NginxServer {
public:
    // False where nginx or openssl is not installed.
    static bool IsInstalled();

    NginxServer();
    ~NginxServer();
    NginxServer(const NginxServer&) = delete;
    NginxServer& operator=(const NginxServer&) = delete;

    void AddFile(const std::string& name, const std::string& content) const;
    std::string Url(const std::string& path) const;
    std::string SecureUrl(const std::string& path) const;
    std::string CertificateFile() const;

private:
    void MakeCertificate() const;
    void WriteConfiguration() const;
    void Start();
    bool IsListening();

    TempDir m_dir;
    int m_port = 0;
    int m_securePort = 0;
    pid_t m_pid = -1;
};

// Java trusts this certificate, and no longer at the end.
class TrustedCertificate {
public:
    explicit TrustedCertificate(const std::string& file);
    ~TrustedCertificate();
    TrustedCertificate(const TrustedCertificate&) = delete;
    TrustedCertificate& operator=(const TrustedCertificate&) = delete;

private:
    JavaClass m_class;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_NET_HTTP_HTTPSERVERS_H_
