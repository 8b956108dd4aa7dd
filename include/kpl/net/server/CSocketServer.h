#ifndef KPL_NET_SERVER_CSOCKETSERVER_H_
#define KPL_NET_SERVER_CSOCKETSERVER_H_

#include "kpl/Export.h"
#include "kpl/net/CSocket.h"
#include "kpl/tools/CommandProcessor.h"

namespace kpl::net::server {

// What a socket server tells. Must outlive the run in which it is set.
class IServerObserver {
public:
    virtual ~IServerObserver() = default;

    // A client has connected. True takes the socket over; false leaves it to the server. Called on
    // the accept thread, which takes no other client meanwhile, and must not stop the server.
    virtual bool ClientAccepted(CSocket* client) = 0;

    // The server has stopped. Called by Stop.
    virtual void ServerClosed() = 0;

    // The server listens. Called by Run; the first client may have been accepted already.
    virtual void StartToAccept() = 0;
};

// Listens on a TCP port, at all of the machine's IPv4 addresses, and accepts connections on a
// thread of its own, one after the other. Out of descriptors, it tries again every 10 ms; any other
// error ends the accepting until the next Run.
//
// A derived class that overrides something calls Stop in its own destructor: until then the accept
// thread may be inside.
class KPL_EXPORT CSocketServer : public tools::CommandProcessor<int> {
public:
    // Port 0 lets the system choose; see GetListeningPort.
    explicit CSocketServer(unsigned int port);

    // Stops.
    ~CSocketServer() override;
    CSocketServer(const CSocketServer&) = delete;
    CSocketServer& operator=(const CSocketServer&) = delete;

    // One step of the accept loop for command 0, which posts itself again; false for any other, and
    // when the loop is to end. Worker thread only.
    bool Execute(int command) override;
    void OnCommandDone(int command) override;

    // The socket of a connection that was accepted: a new CSocket, unless overridden. Null refuses
    // the connection, whose descriptor is then closed if it still is open. Worker thread only.
    virtual CSocket* CreateClientSocket(int fd);

    // Not owned; null for none. Any thread; of one that is replaced during a run, a call may still
    // be under way.
    void SetObserver(IServerObserver* observer);

    // The port that the constructor was given. Any thread.
    int GetPort() const;

    // The port that the server listens on, also where 0 was asked for; -1 while it does not listen.
    // Controlling thread.
    int GetListeningPort() const;

    // Stops an earlier run, listens, and starts to accept. False if the port cannot be had, or no
    // thread. Each Run is ended by Stop, also one that failed. Controlling thread.
    bool Run();

    // The first half of Run: opens the listening socket. Controlling thread.
    bool BindAndListen();

    // Waits for one connection and accepts it. False if no other can be accepted. Worker thread
    // only, or the controlling thread after BindAndListen.
    bool Accept();

    // Closes and deletes the sockets that the server has kept, those that no observer took over.
    // Controlling thread.
    void ReleaseAllClients();

    // Ends the accepting, waits for the accept thread, and closes everything; then the observer
    // hears ServerClosed, if Run was called. Always true. Controlling thread, never the accept
    // thread.
    bool Stop();

private:
    struct PrivateData;

    bool OpenListener();
    bool TakeClient(int fd);

    PrivateData* const m_data;
};

}  // namespace kpl::net::server

#endif  // KPL_NET_SERVER_CSOCKETSERVER_H_
