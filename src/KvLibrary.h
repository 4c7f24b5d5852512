#pragma once

#include <pthread.h>

#include <string>

// Start-up and shut-down of the library. Externally synchronised: one thread, before the first socket, lock,
// thread or pool is made and after the last one is gone.

/// Installs the signal handlers of the thread layer and prepares the sockets; loads no message texts. Always
/// true. What KvconThread::InitializeLibrary throws passes through.
bool InitialLib();

/// The same, and loads the message texts from `resourceDir` (see RealInitial) on the first call of the process.
/// False, with nothing installed, when the texts could not be tried once; a missing file is no failure. What
/// KvsystemResource::Load throws passes through.
///
/// Compatibility: a later call stores its directory in the_ResourceDir and loads nothing from it; the handlers
/// are installed again. Relied on by: hosts that start the library once for each driver they load.
/// Held by: KvLibraryTest.ASecondDirectoryIsStoredButNothingIsLoadedFromIt.
bool InitialLib(const std::string& resourceDir);

/// Undoes what KvconThread::InitializeLibrary did, apart from the signal handlers. Always true. The message
/// texts stay.
bool CloseLib();

/// Loads "libresource.res" of the_ResourceDir, or of the working directory when that is empty, into
/// the_LibResource. A slash or a backslash at the end of the directory is kept, otherwise a slash is added.
void RealInitial();

/// Whether RealInitial has run by InitialLib.
extern pthread_once_t the_Once;
