#ifndef PLUGIN_READER_VTKMARIVANEBUFFER_H
#define PLUGIN_READER_VTKMARIVANEBUFFER_H

/* vtkMarivaneBuffer.h: memory for bulk data, and the parallel loop over it.
 *
 * A std::vector clears what it allocates. Nearly all of the reader's bulk data are written in full before they are
 * read, so that clearing would cost as much as the work itself. A buffer's contents are undefined until they are
 * written, unless zeros are asked for; these come from the system and cost nothing until they are touched.
 *
 * The memory is counted: Lend gives it to a data array that may outlive the buffer, and GiveBack is that array's free
 * function. What is lent is still the buffer's own memory, and a later write is seen by the borrower. */

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

template <class T> class vtkMarivaneBuffer
{
public:
    vtkMarivaneBuffer() = default;
    ~vtkMarivaneBuffer() { this->Free(); }
    vtkMarivaneBuffer(const vtkMarivaneBuffer &) = delete;
    vtkMarivaneBuffer &operator=(const vtkMarivaneBuffer &) = delete;
    vtkMarivaneBuffer(vtkMarivaneBuffer &&other) noexcept { this->Swap(other); }
    vtkMarivaneBuffer &operator=(vtkMarivaneBuffer &&other) noexcept
    {
        this->Swap(other);
        return *this;
    }

    T       *Data() { return this->Values; }
    const T *Data() const { return this->Values; }
    int64_t  Size() const { return this->Count; }
    T       &operator[](int64_t i) { return this->Values[i]; }
    const T &operator[](int64_t i) const { return this->Values[i]; }

    /* n values, undefined unless the buffer held at least n before. A failing allocation throws std::bad_alloc. */
    void Resize(int64_t n)
    {
        if (!this->Values || n > this->Capacity) this->Allocate(n, false);
        this->Count = n;
    }

    /* n zeros in memory of their own */
    void ResizeToZeros(int64_t n)
    {
        this->Allocate(n, true);
        this->Count = n;
    }

    /* size 0; the memory stays */
    void Clear() { this->Count = 0; }

    void Free()
    {
        GiveBack(this->Values);
        this->Values = nullptr;
        this->Count = this->Capacity = 0;
    }

    /* a buffer's memory, once more in use: it stays until GiveBack, whatever becomes of the buffer */
    static T *Lend(T *values)
    {
        if (values) ++*Uses(values);
        return values;
    }

    /* ends one use; frees the memory after the last one */
    static void GiveBack(void *values)
    {
        if (values && --*Uses(values) == 0) free(static_cast<char *>(values) - HEAD);
    }

private:
    enum : size_t { HEAD = 64 };              /* in front of the values: the count of uses; a cache line, so that */
                                              /* the values are as well aligned as the allocation */
    static std::atomic<int> *Uses(void *values)
    {
        return reinterpret_cast<std::atomic<int> *>(static_cast<char *>(values) - HEAD);
    }

    void Allocate(int64_t n, bool zeros)
    {
        this->Free();
        if (n < 0 || uint64_t(n) > (SIZE_MAX / 2 - HEAD) / sizeof(T)) throw std::bad_alloc();
        const size_t size = HEAD + size_t(n) * sizeof(T);
        char *memory = static_cast<char *>(zeros ? calloc(size, 1) : malloc(size));
        if (!memory) throw std::bad_alloc();
        new (memory) std::atomic<int>(1);
        this->Values = reinterpret_cast<T *>(memory + HEAD);
        this->Capacity = n;
    }

    void Swap(vtkMarivaneBuffer &other)
    {
        std::swap(this->Values, other.Values);
        std::swap(this->Count, other.Count);
        std::swap(this->Capacity, other.Capacity);
    }

    T      *Values = nullptr;
    int64_t Count = 0, Capacity = 0;
};

/* f(i) for each i from first to below last, in parallel; each i must write its own entry only, and must not fail. */
template <class F> void vtkMarivaneFor(int64_t first, int64_t last, F f)
{
    const int64_t worthIt = 4096;             /* below, starting the workers costs more than they save */
    if (last - first < worthIt) {
        for (int64_t i = first; i < last; ++i) f(i);
        return;
    }
    tbb::parallel_for(tbb::blocked_range<int64_t>(first, last, worthIt / 4), [&](const tbb::blocked_range<int64_t> &r) {
        for (int64_t i = r.begin(); i < r.end(); ++i) f(i);
    });
}

#endif
