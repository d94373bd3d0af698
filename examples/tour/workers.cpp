#include "workers.h"

#include "report.h"

#include <array>
#include <cstdint>
#include <string>

namespace {

constexpr uint32_t kWorkers = 3;
constexpr uint32_t kPlaces = 2; // fewer than workers, so that some have to wait
constexpr uint32_t kNumbersEach = 100;

// A board with a few places: a worker waits for a free place, writes, and counts the place as filled.
struct Board {
    MPSemaphoreID freePlaces = TavCreateSemaphore(kPlaces, kPlaces);
    MPSemaphoreID filledPlaces = TavCreateSemaphore(0, kPlaces);
    OpacTavEvent* goOn = TavCreateEvent(1, 0); // for all workers at once
    MPCriticalRegionID section = 0;
    uint32_t sum = 0; // inside the section
    uint32_t written = 0;

    Board() { TavInitCriticalSection(&section); }
    ~Board() {
        TavDeleteCriticalSection(&section);
        TavCloseEvent(goOn);
        TavCloseSemaphore(filledPlaces);
        TavCloseSemaphore(freePlaces);
    }
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    bool IsComplete() const {
        return freePlaces != 0 && filledPlaces != 0 && goOn != nullptr && section != 0;
    }
};

struct Worker {
    Board* board = nullptr;
    uint32_t first = 0;
    bool begun = false;
    OpacTavEvent* done = nullptr; // tells this worker's end of work
    OpacTavThread* thread = nullptr;
};

uint32_t Work(void* parameter) {
    auto& worker = *static_cast<Worker*>(parameter);
    Board& board = *worker.board;
    worker.begun = true;
    TavWaitEvent(board.goOn, TAV_INFINITE);
    for (uint32_t i = 0; i < kNumbersEach; i++) {
        TavWaitSemaphore(board.freePlaces, TAV_INFINITE);
        TavEnterCriticalSection(&board.section);
        board.sum += worker.first + i;
        board.written++;
        TavLeaveCriticalSection(&board.section);
        TavReleaseSemaphore(board.filledPlaces);
    }
    TavSetEvent(worker.done);
    return 0;
}

bool Start(std::array<Worker, kWorkers>& workers, Board& board) {
    bool started = true;
    for (uint32_t i = 0; i < kWorkers; i++) {
        workers[i].board = &board;
        workers[i].first = 1 + i * kNumbersEach;
        workers[i].done = TavCreateEvent(0, 0);
        workers[i].thread = TavCreateThread(Work, &workers[i], 0, TAV_THREAD_SUSPENDED);
        started = started && workers[i].done != nullptr && workers[i].thread != nullptr;
    }
    return started;
}

bool CollectAll(Board& board) {
    for (uint32_t i = 0; i < kWorkers * kNumbersEach; i++) {
        if (TavWaitSemaphore(board.filledPlaces, 10'000) != TAV_WAIT_OBJECT_0) {
            return false;
        }
        TavReleaseSemaphore(board.freePlaces);
    }
    return true;
}

} // namespace

void ShowWorkers() {
    Heading("Workers");
    Board board;
    std::array<Worker, kWorkers> workers;
    bool started = board.IsComplete() && Start(workers, board);
    Check("create three threads, suspended", started, started ? "none has begun" : "not to be had");
    if (!started) {
        return;
    }
    bool waiting = TavWaitThread(workers[0].thread, 20) == TAV_WAIT_TIMEOUT && !workers[0].begun;
    Check("look at one for 20 ms", waiting, "still suspended");

    for (Worker& worker : workers) {
        TavResumeThread(worker.thread);
    }
    Check("resume them and set the event that they wait for", TavSetEvent(board.goOn) == 1, "off they go");

    bool collected = CollectAll(board);
    Check("collect 300 numbers through two places", collected,
          std::to_string(board.written) + " handed over");
    uint32_t expected = kWorkers * kNumbersEach * (kWorkers * kNumbersEach + 1) / 2;
    Check("add them up in a critical section", board.sum == expected, std::to_string(board.sum));

    bool ended = true;
    for (Worker& worker : workers) {
        ended = TavWaitEvent(worker.done, 10'000) == TAV_WAIT_OBJECT_0 && ended;
        ended = TavWaitThread(worker.thread, 10'000) == TAV_WAIT_OBJECT_0 && ended;
        TavCloseThreadRef(worker.thread);
        TavCloseEvent(worker.done);
    }
    Check("wait for each worker's event and its end", ended, "all three done");
}
