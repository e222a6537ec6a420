// recording_writer RECORDING ACCOUNT: records frames until it is killed.

#include "client/recorder.h"
#include "made_up_frames.h"
#include "recording_account.h"

#include <csignal>
#include <sys/prctl.h>
#include <vector>

int main(int argc, char** argv)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (argc != 3) {
        return 2;
    }
    const RecordingAccount account(argv[2]);
    if (!account.isOpen()) {
        return 1;
    }
    std::vector<zrn::Frame> frames;
    for (std::uint32_t i = 0; i < 8; ++i) {
        frames.push_back(madeUpFrame(i, 200, 100));
    }
    zrn::Recorder::Limits limits;
    limits.queueBytes = 1U << 20;
    zrn::Recorder recorder(argv[1], R"({"serial":"ZR1"})", limits);
    // An end for a machine on which nobody kills it.
    for (std::uint32_t number = 0; number < 100000; ++number) {
        zrn::Frame frame = frames[number % frames.size()];
        frame.step.number = number;
        account.added() = number + 1;
        if (number % 5 == 0) {
            recorder.note({frame.arrival, std::to_string(number)});
        }
        if (!recorder.add(frame)) {
            return 1;
        }
        account.written() = recorder.progress().frames;
    }
    return 0;
}
