#pragma once

#include <Vessa/Thread.h>

namespace Vessa {

/// A thread that calls one member function of an object, which must outlive it.
template <class T>
class ObjectThread : public Thread {
public:
    using Function = int (T::*)();

    ObjectThread(T* object, Function function) : object_(object), function_(function) {}
    ~ObjectThread() override { join(); }

protected:
    int main() override { return (object_->*function_)(); }

private:
    T* object_;
    Function function_;
};

} // namespace Vessa
