// Links the shared libraries as users do: errors thrown inside one library are caught by type in another.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <functional>
#include <string>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/regen.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_sink.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/posix_file.h"
#include "mirrowen/util/str.h"
#include "tests/consumer/thrower.h"

namespace {

std::string library_of(const void* symbol) {
    Dl_info info = {};
    return ::dladdr(symbol, &info) != 0 ? info.dli_fname : "";
}

TEST(ExceptionsAcrossLibraries, TypeInformationIsHeldOnceByTheGroundFloor) {
    for (const std::type_info* const type :
         {&typeid(exc::CException), &typeid(exc::CRuntimeExc), &typeid(exc::CNotImplExc),
          &typeid(exc::CAlreadyExistsExc), &typeid(posix::errno_exc_t)}) {
        EXPECT_THAT(library_of(type->name()), testing::HasSubstr("libMirrowen.so")) << type->name();
    }
}

TEST(ExceptionsAcrossLibraries, ThrownByTheGroundFloorCaughtHere) {
    EXPECT_THROW(util::str_to_streamsize("x"), exc::CRuntimeExc);
    EXPECT_THROW(posix::posix_file_t::Open4Read("/no/such/file"), posix::errno_exc_t);
}

TEST(ExceptionsAcrossLibraries, ThrownHereCaughtInAnotherLibrary) {
    using tests::consumer::Classify;
    EXPECT_EQ(Classify([] { throw exc::CRuntimeExc("x"); }), "CRuntimeExc");
    EXPECT_EQ(Classify([] { throw exc::CNotImplExc("x"); }), "CNotImplExc");
    EXPECT_EQ(Classify([] { throw exc::CAlreadyExistsExc("x"); }), "CAlreadyExistsExc");
    EXPECT_EQ(Classify([] { posix::posix_file_t::Open4Read("/no/such/file"); }), "errno_exc_t");
}

TEST(ExceptionsAcrossLibraries, ThrownInAnotherLibraryCaughtHere) {
    EXPECT_THROW(tests::consumer::ThrowRuntime(), exc::CRuntimeExc);
    EXPECT_THROW(tests::consumer::ThrowNotImpl(), exc::CNotImplExc);
    EXPECT_THROW(tests::consumer::ThrowAlreadyExists(), exc::CAlreadyExistsExc);
}

TEST(ExceptionsAcrossLibraries, CauseCrossesUnchanged) {
    try {
        try {
            tests::consumer::ThrowAlreadyExists();
        } catch (const std::exception&) {
            exc::RegenExc("outer");
        }
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_THROW(std::rethrow_exception(error.Cause()), exc::CAlreadyExistsExc);
    }
}

}  // namespace
