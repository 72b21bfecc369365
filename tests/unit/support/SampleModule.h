#pragma once

// A small DLL for the self tests: what the support code does to it, it later does to Varnex.dll.
extern "C"
{
    // The tick count as the module reads it.
    unsigned long SampleTick();
    // Sleeps on the caller's thread.
    void SampleSleep(unsigned long dwMilliseconds);
    // Starts a thread that counts the seconds, and stops it.
    int SampleStart();
    void SampleStop();
    int SampleSeconds();
    // Fails by handing through what CreateEventW left.
    unsigned long SampleCreateEvent();
}
