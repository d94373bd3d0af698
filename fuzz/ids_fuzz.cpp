// Sequences of calls on semaphores, mutexes, events, critical sections, queues and threads, with ids that are alive,
// closed, of another kind or invented, beside a table of what each id stands for.
#include "input.h"

#include "system/synchronisation.h"
#include "system/threads.h"

#include <map>
#include <vector>

namespace {

enum class Kind { None, Semaphore, Event, Region, Queue, Task };

struct Object {
    Kind kind = Kind::None;
    uint32_t count = 0; // of a semaphore; the flags of an event; how often a section was entered
    uint32_t maximum = 0;
};

// The sanitizer does not learn of the end of threads that are terminated, and keeps what it has for them.
int terminationsLeft = 20000;

uint32_t TwiceTheParameter(void* parameter) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(parameter) * 2);
}

class Sequence {
public:
    explicit Sequence(Input& input) : input_(input) {}
    ~Sequence();

    void Run() {
        for (int calls = 0; calls < 200 && !input_.AtEnd(); ++calls) Step();
    }

private:
    void Step();
    uint32_t ID();
    Object* Find(uint32_t id, Kind kind);
    void Keep(uint32_t id, const Object& object);
    bool Forget(uint32_t id, Kind kind);
    uint32_t ExpectedWait(Object* object, bool isSignalled) const;
    bool IsHidden(uint32_t id) const;

    void MakeSemaphore();
    void WaitSemaphore(uint32_t id);
    void ReleaseSemaphore(uint32_t id);
    void WaitEvent(uint32_t id);
    void MakeTavEvent();
    void UseTavEvent();
    void UseSection(uint32_t id);
    void MakeThread();
    void UseThread();
    void Join(OpacTavThread* thread);

    Input& input_;
    std::map<uint32_t, Object> objects_;
    std::vector<uint32_t> ids_; // all that there ever were
    std::vector<OpacTavEvent*> events_;
    std::vector<OpacTavThread*> threads_;
};

// Whether the id is of what a thread's record needs to the end.
bool Sequence::IsHidden(uint32_t id) const {
    for (const OpacTavThread* thread : threads_) {
        if (id == thread->queue || id == thread->suspendMutex || id == thread->startMutex) return true;
    }
    return false;
}

uint32_t Sequence::ID() {
    const uint8_t choice = input_.Byte();
    const bool isKnown = choice < 0xF0 && !ids_.empty();
    const uint32_t id = isKnown ? ids_[choice % ids_.size()] : input_.Number();
    return IsHidden(id) ? 0 : id;
}

Object* Sequence::Find(uint32_t id, Kind kind) {
    const auto found = objects_.find(id);
    return found != objects_.end() && found->second.kind == kind ? &found->second : nullptr;
}

void Sequence::Keep(uint32_t id, const Object& object) {
    Expect(id != 0 && objects_.emplace(id, object).second);
    ids_.push_back(id);
}

bool Sequence::Forget(uint32_t id, Kind kind) {
    if (!Find(id, kind)) return false;
    objects_.erase(id);
    return true;
}

uint32_t Sequence::ExpectedWait(Object* object, bool isSignalled) const {
    if (!object) return TAV_WAIT_ABANDONED;
    return isSignalled ? TAV_WAIT_OBJECT_0 : TAV_WAIT_TIMEOUT;
}

void Sequence::MakeSemaphore() {
    const uint32_t count = input_.Byte() % 4, maximum = input_.Byte() % 4;
    const uint32_t id = TavCreateSemaphore(count, maximum);
    if (maximum == 0 || count > maximum)
        Expect(id == 0);
    else
        Keep(id, {Kind::Semaphore, count, maximum});
}

void Sequence::WaitSemaphore(uint32_t id) {
    Object* semaphore = Find(id, Kind::Semaphore);
    const bool isFree = semaphore && semaphore->count > 0;
    // Without a limit only where that returns.
    const int32_t timeout = !semaphore || isFree ? static_cast<int8_t>(input_.Byte()) : 0;
    const auto wait = input_.Byte() % 2 == 0 ? TavWaitSemaphore : TavWaitMutex;
    Expect(wait(id, timeout) == ExpectedWait(semaphore, isFree));
    if (isFree) --semaphore->count;
}

void Sequence::ReleaseSemaphore(uint32_t id) {
    Object* semaphore = Find(id, Kind::Semaphore);
    const bool hasRoom = semaphore && semaphore->count < semaphore->maximum;
    const auto release = input_.Byte() % 2 == 0 ? TavReleaseSemaphore : TavReleaseMutex;
    Expect(release(id) == hasRoom);
    if (hasRoom) ++semaphore->count;
}

void Sequence::WaitEvent(uint32_t id) {
    Object* event = Find(id, Kind::Event);
    MPEventFlags flags = 1;
    const OSStatus status = MPWaitForEvent(id, &flags, kDurationImmediate);
    Expect(WaitResult(status) == ExpectedWait(event, event && event->count != 0));
    Expect(flags == (event ? event->count : 0));
    if (event) event->count = 0;
}

void Sequence::MakeTavEvent() {
    const int32_t manual = input_.Byte() % 2, initial = input_.Byte() % 2;
    events_.push_back(TavCreateEvent(manual, initial));
    Expect(events_.back() != nullptr);
    Keep(events_.back()->event, {Kind::Event, static_cast<uint32_t>(initial), 0});
}

// Also when its id has been deleted behind its back.
void Sequence::UseTavEvent() {
    OpacTavEvent* const handle = events_.empty() ? nullptr : events_[input_.Byte() % events_.size()];
    Object* event = handle ? Find(handle->event, Kind::Event) : nullptr;
    switch (input_.Byte() % 4) {
    case 0:
        Expect(TavSetEvent(handle) == (event != nullptr));
        if (event) event->count |= 1;
        break;
    case 1:
        Expect(TavResetEvent(handle) == (handle != nullptr));
        if (event) event->count = 0;
        break;
    case 2:
        Expect(TavWaitEvent(handle, 0) == ExpectedWait(event, event && event->count != 0));
        if (event) event->count = handle->manualReset && event->count != 0;
        break;
    default:
        const uint32_t id = handle ? handle->event : 0;
        Expect(TavCloseEvent(handle) == Forget(id, Kind::Event));
        std::erase(events_, handle);
    }
}

void Sequence::UseSection(uint32_t id) {
    Object* section = Find(id, Kind::Region);
    const bool isHeld = section && section->count > 0;
    switch (input_.Byte() % 3) {
    case 0:
        Expect(TavEnterCriticalSection(&id) == (section != nullptr));
        if (section) ++section->count;
        break;
    case 1:
        Expect(TavLeaveCriticalSection(&id) == isHeld);
        if (isHeld) --section->count;
        break;
    default:
        Expect(TavDeleteCriticalSection(&id) == Forget(id, Kind::Region));
    }
}

void Sequence::MakeThread() {
    if (threads_.size() == 4) return;
    const uint8_t choice = input_.Byte();
    const uint32_t flags = choice & 1 ? TAV_THREAD_SUSPENDED : 0;
    OpacTavThread* thread = TavCreateThread(choice & 2 ? TwiceTheParameter : nullptr, this, choice, flags);
    Expect(thread != nullptr);
    threads_.push_back(thread);
    Keep(GetTavThreadID(thread), {Kind::Task, 0, 0});
}

// Its end, and that it is told once.
void Sequence::Join(OpacTavThread* thread) {
    TavResumeThread(thread);
    Expect(TavWaitThread(thread, TAV_INFINITE) == TAV_WAIT_OBJECT_0);
    Expect(TavWaitThread(thread, 0) == TAV_WAIT_TIMEOUT);
    Expect(Forget(GetTavThreadID(thread), Kind::Task));
    std::erase(threads_, thread);
    Expect(TavCloseThreadRef(thread) == 1);
}

void Sequence::UseThread() {
    if (threads_.empty()) return;
    OpacTavThread* const thread = threads_[input_.Byte() % threads_.size()];
    switch (input_.Byte() % 3) {
    case 0:
        Expect((TavResumeThread(thread) != 0) == (thread->suspendMutex != 0));
        break;
    case 1:
        if (--terminationsLeft > 0) TavTerminateThread(thread, 7); // it may have ended
        break;
    default:
        Join(thread);
    }
}

void Sequence::Step() {
    uint32_t made = 0;
    switch (input_.Byte() % 20) {
    case 0:
    case 1:
        return MakeSemaphore();
    case 2:
        made = input_.Byte() % 2;
        return Keep(TavCreateMutex(static_cast<int32_t>(made)), {Kind::Semaphore, 1 - made, 1});
    case 3:
    case 4:
        return WaitSemaphore(ID());
    case 5:
    case 6:
        return ReleaseSemaphore(ID());
    case 7:
        made = ID();
        return Expect(TavCloseSemaphore(made) == Forget(made, Kind::Semaphore));
    case 8:
        Expect(MPCreateEvent(&made) == noErr);
        return Keep(made, {Kind::Event, 0, 0});
    case 9: {
        const uint32_t id = ID(), flags = input_.Byte();
        Object* event = Find(id, Kind::Event);
        Expect(MPSetEvent(id, flags) == (event ? OSStatus{noErr} : kMPInvalidIDErr));
        if (event) event->count |= flags;
        return;
    }
    case 10:
        return WaitEvent(ID());
    case 11:
        made = ID();
        return Expect((MPDeleteEvent(made) == noErr) == Forget(made, Kind::Event));
    case 12:
        return MakeTavEvent();
    case 13:
    case 14:
        return UseTavEvent();
    case 15:
        Expect(TavInitCriticalSection(&made) == 1);
        return Keep(made, {Kind::Region, 0, 0});
    case 16:
        return UseSection(ID());
    case 17: {
        Expect(MPCreateQueue(&made) == noErr);
        Keep(made, {Kind::Queue, 0, 0});
        const uint32_t id = ID();
        const OSStatus expected = Find(id, Kind::Queue) ? kMPTimeoutErr : kMPInvalidIDErr;
        Expect(MPWaitOnQueue(id, nullptr, nullptr, nullptr, kDurationImmediate) == expected);
        Expect((MPDeleteQueue(id) == noErr) == Forget(id, Kind::Queue));
        return;
    }
    case 18:
        MakeThread();
        made = ID();
        return Expect(Find(made, Kind::Task) || MPTerminateTask(made, 1) == kMPInvalidIDErr);
    default:
        return UseThread();
    }
}

// Everything that is left goes, each in the way of its kind.
Sequence::~Sequence() {
    while (!threads_.empty()) Join(threads_.back());
    for (OpacTavEvent* event : events_) {
        const uint32_t id = event->event;
        Expect(TavCloseEvent(event) == Forget(id, Kind::Event));
    }
    for (auto [id, object] : objects_) {
        uint32_t region = id;
        if (object.kind == Kind::Semaphore) Expect(TavCloseMutex(id));
        if (object.kind == Kind::Event) Expect(MPDeleteEvent(id) == noErr);
        if (object.kind == Kind::Region) Expect(TavDeleteCriticalSection(&region));
        if (object.kind == Kind::Queue) Expect(MPDeleteQueue(id) == noErr);
        Expect(MPDeleteQueue(id) == kMPInvalidIDErr);
    }
}

} // namespace

// What it has for them would count as leaked.
extern "C" const char* __asan_default_options() {
    return "detect_leaks=0";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    Sequence(input).Run();
    return 0;
}
