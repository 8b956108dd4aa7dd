#ifndef KPL_CLI_OUTPUT_H_
#define KPL_CLI_OUTPUT_H_

#include <string>

namespace kpl::cli {

class StopSignals;

enum class Colour { Plain, Good, Warning, Bad, Dim };

// What the tool prints. A write never waits beyond the stop, and when nobody reads any more (`|
// head`), IsClosed says so and the rest is dropped without a word. One thread.
class Output {
public:
    // Colours only on a terminal, and not with NO_COLOR or a TERM of "dumb".
    Output(int descriptor, const StopSignals* stop);

    // Prints at once: what reads us may be waiting.
    void Print(const std::string& text);

    // The text, between colour sequences if there are colours.
    std::string Paint(Colour colour, const std::string& text) const;

    // True when nothing more can be printed: whoever prints without end then ends.
    bool IsClosed() const { return m_closed; }

    // The errno of a write that failed otherwise than by a reader that has gone; 0 if none did.
    int Error() const { return m_error; }

private:
    bool WaitUntilWritable() const;

    const int m_descriptor;
    const StopSignals* m_stop;
    bool m_coloured;
    bool m_closed = false;
    int m_error = 0;
};

}  // namespace kpl::cli

#endif  // KPL_CLI_OUTPUT_H_
