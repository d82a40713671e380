#pragma once

// Included before everything else in what the Windows tests build: the calls of the system that a test can
// make fail go to the replacements of PlatformFaults.cpp under names of their own, since
// the system's libraries do not let a program replace theirs.

#define _CRTIMP
#define _KERNEL32_
#define _OLE32_
#define _ADVAPI32_

#define CloseHandle KvTestCloseHandle
#define CoCreateInstance KvTestCoCreateInstance
#define CoUninitialize KvTestCoUninitialize
#define CreateEventA KvTestCreateEventA
#define QueryPerformanceCounter KvTestQueryPerformanceCounter
#define ResetEvent KvTestResetEvent
#define SetEvent KvTestSetEvent
#define WaitForSingleObject KvTestWaitForSingleObject
#define _beginthreadex KvTest_beginthreadex
