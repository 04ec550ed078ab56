// The box simulator's scenario files.
#include "fuzzsupport.h"

#include "tools/boxsim/scenario.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::ensureApp();
    const QByteArray text(reinterpret_cast<const char *>(data), qsizetype(size));
    Scenario s;
    QString error;
    const bool ok = ScenarioParser::parse(text, QStringLiteral("fuzz.txt"), s, error);
    bool sound = ok ? !s.transfers.isEmpty() && s.loopStart >= 0 && s.loopStart < s.transfers.size()
                    : !error.isEmpty();
    for (const Transfer &t : s.transfers) {
        sound = sound && t.bytes.size() == t.modeBits.size() && t.bytes.size() <= ScenarioParser::maxBytesPerLine
                && t.gap <= ScenarioParser::maxGap && t.direction >= 0 && t.direction <= 255;
        sound = sound && wireBytes(t, 0).size() == 2 * t.bytes.size() && wireBytes(t, 1) == t.bytes;
    }
    if (!sound) {
        std::fprintf(stderr, "scenario: parse result breaks its own rules: %s\n", qPrintable(error));
        std::abort();
    }
    return 0;
}
