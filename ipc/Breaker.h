#ifndef KPL_IPC_BREAKER_H_
#define KPL_IPC_BREAKER_H_

namespace kpl::ipc {

// Ends the waits of other threads: they wait on its descriptor beside their own, and once it is
// broken it stays readable. A blocked open(2), read(2) or write(2) could not be ended from outside
// without the risk of hitting a descriptor number that belongs to somebody else by then.
class Breaker {
public:
    Breaker();
    ~Breaker();
    Breaker(const Breaker&) = delete;
    Breaker& operator=(const Breaker&) = delete;

    // Any thread.
    void Break();
    bool IsBroken() const;

    // Makes it whole again. Only while nobody waits.
    void Mend();

    // -1 if the process had no descriptor left; every wait on it then fails.
    int Descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
};

}  // namespace kpl::ipc

#endif  // KPL_IPC_BREAKER_H_
