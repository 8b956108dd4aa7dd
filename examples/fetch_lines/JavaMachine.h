#ifndef KPL_EXAMPLES_FETCH_LINES_JAVAMACHINE_H_
#define KPL_EXAMPLES_FETCH_LINES_JAVAMACHINE_H_

// A Java machine in this process, for the library's HTTP client. A process can have one in its
// life.
class JavaMachine {
public:
    JavaMachine() = default;
    ~JavaMachine();  // takes it away from the library
    JavaMachine(const JavaMachine&) = delete;
    JavaMachine& operator=(const JavaMachine&) = delete;

    // Starts it, with the client's class in the directory `classes`, on the thread that then uses
    // the client. Null when all is well, otherwise why there is none.
    const char* Start(const char* classes);

private:
    [[maybe_unused]] void* m_vm = nullptr;  // JavaVM*; unused where there is no JDK
};

#endif  // KPL_EXAMPLES_FETCH_LINES_JAVAMACHINE_H_
