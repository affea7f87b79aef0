#ifndef PLUGIN_READER_VTKMARIVANETIMER_H
#define PLUGIN_READER_VTKMARIVANETIMER_H

/* vtkMarivaneTimer.h: how long a step of the reader took. Nothing prints the sums. */

#include <chrono>
#include <cstdint>

/* A start tick, a stop tick and a label; ticks are of 100 nanoseconds. */
struct ElapsedTimer {
    int64_t     Start, Stop;
    const char *Label;

    explicit ElapsedTimer(const char *label) : Start(Now()), Stop(Start), Label(label) {}

    static int64_t Now()
    {
        typedef std::chrono::duration<int64_t, std::ratio<1, 10000000>> Ticks;
        return std::chrono::duration_cast<Ticks>(std::chrono::steady_clock::now().time_since_epoch()).count();
    }

    /* seconds in whole milliseconds */
    double End()
    {
        this->Stop = Now();
        return double((this->Stop - this->Start) / 10000) / 1000.0;
    }
};

/* Adds the time until the end of its scope to a sum. */
class vtkMarivaneTimed
{
public:
    explicit vtkMarivaneTimed(double &sum, const char *label = "TimeElapsed") : Sum(sum), Timer(label) {}
    ~vtkMarivaneTimed() { this->Sum += this->Timer.End(); }
    vtkMarivaneTimed(const vtkMarivaneTimed &) = delete;
    void operator=(const vtkMarivaneTimed &) = delete;

private:
    double      &Sum;
    ElapsedTimer Timer;
};

#endif
