// Finds UPnP devices on the local network with one SSDP search.
#ifndef KPL_NET_UPNPFINDER_H_
#define KPL_NET_UPNPFINDER_H_

#include <memory>
#include <string>
#include <vector>

#include "kpl/Export.h"
#include "kpl/os/CCritSec.h"

namespace kpl::net {

// What to search for.
enum UPnPDevType : int {
    UPNP_DEV_ROOT = 0,            // "upnp:rootdevice": every device
    UPNP_DEV_MEDIA_RENDERER = 1,  // "urn:schemas-upnp-org:device:MediaRenderer:1"
};

// Hears what a UPnPFinder finds. Called on the searching thread while the finder's list of
// observers is locked: it may call Stop, but add and remove no observer and start no search.
class KPL_EXPORT UPnPFinderObserver {
public:
    virtual ~UPnPFinderObserver() = default;

    // A device has answered: where its description is, its unique service name, what it runs on,
    // and the search target it answers for. Valid during the call. A header that the answer does
    // not have is not empty: see FindAndCopyString. A device that answers twice comes twice.
    virtual void OnAddDevice(const char* location, const char* usn, const char* server,
                             const char* st) = 0;

    // The search has ended, and there were devices.
    virtual void OnSearchDeviceComplete() = 0;

    // 0: the search ended without any device. 2: the request could not be sent. 3: a search is open
    // already (SendSSDPRequest) or none is (ReadSSDPRespond). 4: unknown type. 5: no socket.
    virtual void OnError(int code) = 0;
};

// Sends one M-SEARCH to 239.255.255.250 port 1900, by the system's default interface, and reports
// the answers to its observers. A search runs on its caller's thread, one at a time in a process.
class KPL_EXPORT UPnPFinder {
public:
    UPnPFinder();

    // Closes an open search that nobody reads. Not while a search runs.
    ~UPnPFinder();
    UPnPFinder(const UPnPFinder&) = delete;
    UPnPFinder& operator=(const UPnPFinder&) = delete;

    // Appends an observer, which is not owned; one that is there already stays where it is. Returns
    // false for null. Any thread, never an observer; waits while observers are being called.
    bool AddObserver(UPnPFinderObserver* observer);

    // Returns true if the observer was there. Once it returns, the observer is not called any more.
    // Any thread, never an observer.
    bool RemoveObserver(UPnPFinderObserver* observer);
    void RemoveAllObservers();

    // Stops an earlier search, sends the request and reads the answers with a time-out of 10
    // seconds. Returns false where one of the two does; blocks until the search is stopped.
    bool Start(UPnPDevType type);

    // Ends the search: one that waits for an answer returns at once, one that lets the answers
    // gather returns at the end of its time-out. Returns true, also without a search. Any thread,
    // and observers.
    bool Stop();

    // The first half of a search: opens its socket and sends the request. Returns false after
    // OnError with 2, 3, 4 or 5.
    bool SendSSDPRequest(UPnPDevType type);

    // The second half. First lets answers gather for `timeoutSeconds`, whatever comes; then reports
    // these and every further one as it comes, until Stop. With 0 each answer is reported when it
    // comes. A signal that arrives while answers gather ends the search, without looking at them.
    // Answers are those that begin with "HTTP/1.1 200 OK"; they are cut to 1024 bytes. Ends with
    // OnSearchDeviceComplete, or OnError(0) if there was no device. Returns true if there was one
    // and the search was not stopped; false after OnError(3) without a search.
    bool ReadSSDPRespond(int timeoutSeconds);

    // Call the observers, in the order in which they were added, with the list locked. `response`
    // is the text of an answer; its headers "LOCATION: ", "USN: ", "SERVER: " and "ST: " are found
    // in exactly this spelling.
    void DispatchAddDeviceEvent(const char* response);
    void DispatchSearchDeviceCompleteEvent();
    void DispatchErrorEvent(int code);

private:
    class SearchSocket;

    std::shared_ptr<SearchSocket> CurrentSocket();
    bool OpenSocket(std::shared_ptr<SearchSocket>* opened);
    bool ReceiveAnswers(const std::shared_ptr<SearchSocket>& socket, int timeoutSeconds);
    bool Forget(const std::shared_ptr<SearchSocket>& socket);

    std::vector<UPnPFinderObserver*> m_observers KPL_GUARDED_BY(m_lock);
    os::CCritSec* m_lock;
    std::shared_ptr<SearchSocket> m_socket KPL_GUARDED_BY(m_socketLock);  // null: no search is open
    os::CCritSec m_socketLock;
};

// Copies what stands in `text` behind the first `begin`, up to the next `end`, to `value`. Returns
// false, and leaves `value`, if there is no such `end`, and for null. A `begin` that does not occur
// counts as found one character before the text: the value is then taken from the index that is
// the length of `begin` less one. Any thread.
KPL_EXPORT bool FindAndCopyString(std::string& text, std::string& value, const char* begin,
                                  const char* end);

}  // namespace kpl::net

#endif  // KPL_NET_UPNPFINDER_H_
