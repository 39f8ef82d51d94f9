#pragma once

namespace vq::SdkShim {

/// Constructs every process-wide object of the runtime that the connection and device threads use.
void ConstructSingletons();

/// True from the moment on when the process has begun to end: nothing may be started any more.
bool IsProcessExiting();
void MarkProcessExiting();

/// Ends a context's threads when the process exits. Objects built at first use are destroyed in the reverse
/// order, and the context itself, built when the library was loaded, after all of them: make one of these as
/// a function-local static behind each object that the threads need.
template <class Context>
class TearDownAtExit {
public:
    /// @param context  not owned; outlives this object.
    explicit TearDownAtExit(Context& context) : m_context(context) {}
    ~TearDownAtExit() {
        MarkProcessExiting();
        m_context.TearDown();
    }
    TearDownAtExit(TearDownAtExit const&) = delete;
    TearDownAtExit& operator=(TearDownAtExit const&) = delete;

private:
    Context& m_context;
};

}  // namespace vq::SdkShim
