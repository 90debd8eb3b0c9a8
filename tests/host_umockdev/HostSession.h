// The host side of one session with the built library, run in a process of
// its own under umockdev: it loads libzorbus.so, plays a script of entry
// point calls and writes every answer and every event to a transcript.
//
// Script: one call per line, "verb argument":
//   factory 0|1      what nvxIsFactory answers from now on
//   medium 0|1       what nvxIsDiagsCD answers from now on
//   translator TEXT  InitializeTCTranslator(TEXT)
//   init XML         Initialize(XML)
//   callback         SetCallback with the recording callback
//   run XML          ExecuteXMLCommand(XML), then the matching release
//   uninit [XML]     Uninitialize(XML), or Uninitialize(null) without one
//   file PATH        the bytes of a file in the working directory, as answer
//
// Transcript: records "kind length\ntext\n", kind one of "step" (the script
// line), "answer" (what the call returned) and "event" (what the callback
// got, in order).
#pragma once

// The file a testbed carries so that the session can tell the preload works.
extern const char* const testbedMarkPath;
// What the host's nvxGetCurrentCPU answers: fixed, so that failure texts are.
extern const int hostProcessor;

// Exit status: 0 when the script ran to its end; 2 when the testbed cannot be
// seen (no umockdev preload), 3 when the library or the script cannot be read.
int RunHostSession(const char* scriptPath, const char* transcriptPath);
