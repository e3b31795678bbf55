// The allocator of a manager's intermediate images. Small blocks go straight to the
// manager's CDualAllocator. Frame-sized blocks (those that allocator serves with pages)
// are kept when a run frees them and handed out again by the next run, the way a
// process heap keeps freed memory: a chain that converts one frame after another then
// writes into memory that is already mapped instead of faulting in fresh pages on every
// frame. A kept block is cleared before it is handed out again, so that a stage sees
// the zeroed memory that fresh pages give. Blocks that a whole run did not take are
// given back to the system at the run's end, so that what is kept follows the sizes of
// the frames being converted.
#pragma once

#include <kelp/alloc.h>
#include <kelp/kelpthread.h>

namespace kelp {

class CTempBlocks : public IAllocator {
public:
    static constexpr unsigned kKeep = 4; // blocks kept between runs
    static constexpr unsigned kLent = 8; // frame-sized blocks out at one time, tracked

    explicit CTempBlocks(IAllocator* system) : m_system(system) {}
    ~CTempBlocks() override;
    CTempBlocks(const CTempBlocks&) = delete;
    CTempBlocks& operator=(const CTempBlocks&) = delete;

    void* Allocate(unsigned int size, uint32_t flags) override;
    // A block that changes size is no longer kept: it goes back to the system on Free.
    void* ReAllocate(void* p, unsigned int size, uint32_t flags) override;
    unsigned int GetSize(void* p) override;
    void Free(void* p) override;

    // The end of a run: kept blocks that the run neither took nor gave back are freed,
    // and blocks still out are forgotten (they are no temporaries any more).
    void EndRun();
    // Frees every kept block.
    void Release();

    unsigned KeptCount();

private:
    struct Block {
        void* p;
        unsigned size; // the size it was allocated with: what it can serve
        bool touched;  // taken or given back since the last EndRun
    };
    bool FrameSized(unsigned int size) const;
    bool Untrack(void* p, unsigned* size); // takes p off the lent list

    IAllocator* m_system;
    CKELPCritSec m_lock;
    Block m_kept[kKeep] = {};
    unsigned m_keptCount = 0;
    Block m_lent[kLent] = {};
    unsigned m_lentCount = 0;
};

} // namespace kelp
