#include "dme/engine.h"

#include <cxxtools/serializationinfo.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

#include "application.h"
#include "dme/json.h"
#include "dme/policy.h"
#include "dme/result.h"
#include "leaf_nodes.h"
#include "recorded_diagnostics.h"
#include "request.h"
#include "test_nodes.h"

namespace {

using cxxtools::SerializationInfo;
using dme::AllowedMethods;
using dme::Arguments;
using dme::Context;
using dme::DataModel;
using dme::DataModelEngine;
using dme::DMExtensionHandler;
using dme::ExceptionHandlers;
using dme::formatJson;
using dme::ObserverOption;
using dme::RequestInfo;
using dme::Value;
using dme::test::ALL_METHODS;
using dme::test::BareValue;
using dme::test::FunctionLeaf;
using dme::test::StringLeaf;
using dme::test::TestParent;
using dme::test::TextLeaf;
using dme::test::WaitingObserver;
using dme::test::writeErrorDocument;
using std::chrono::hours;
using std::chrono::milliseconds;

const dme::Lexicon& lexicon() {
    return dme::test::testLexicon();
}

// A node that tells whether it has been destroyed.
class DestructionWitness : public BareValue {
  public:
    explicit DestructionWitness(bool& destroyed) : BareValue(ALL_METHODS), destroyed_(destroyed) {}
    ~DestructionWitness() override { destroyed_ = true; }

  private:
    bool& destroyed_;
};

// An extension handler that writes every call into a shared log as "<name>.<operation>" and
// runs the actions given for preProcess and postProcess (both return 0 unless changed).
class RecordingHandler : public DMExtensionHandler {
  public:
    RecordingHandler(std::string name, std::vector<std::string>& log)
        : name_(std::move(name)), log_(log) {}

    std::function<int(Context&)> onPreProcess = [](Context&) { return 0; };
    std::function<int(int)> onPostProcess = [](int) { return 0; };

    void init(Value&) override { log_.push_back(name_ + ".init"); }
    int preProcess(Context& ctx) override {
        log_.push_back(name_ + ".preProcess");
        return onPreProcess(ctx);
    }
    int postProcess(int status, Context&) override {
        log_.push_back(name_ + ".postProcess(" + std::to_string(status) + ")");
        return onPostProcess(status);
    }
    void terminate(Value&) override { log_.push_back(name_ + ".terminate"); }

  private:
    std::string name_;
    std::vector<std::string>& log_;
};

ExceptionHandlers::Entry handlerFor(const std::type_info& type,
                                    ExceptionHandlers::Handler handler) {
    return ExceptionHandlers::Entry(std::type_index(type), std::move(handler));
}

// A handler that claims every exception with `status` and writes nothing.
ExceptionHandlers::Handler answering(int status) {
    return [status](std::exception&, Context&, const SerializationInfo&, SerializationInfo&) {
        return status;
    };
}

FunctionLeaf::Operation throwing(std::function<void()> thrower) {
    return [thrower](Context&, const SerializationInfo&, SerializationInfo&) -> int {
        thrower();
        return 0;
    };
}

// A tree served through an engine:
//   /leaf       a text leaf reading "hello"
//   /text       an observable leaf
//   /bare       a node that cannot be observed
//   /probe      records the context of the last request that read it
//   /a/boom     throws std::runtime_error("boom") when read
//   /a/length   throws std::length_error("too long") when read
//   /a/int      throws the int 42 when read
//   /a/invalid  throws dme::Exception "String too long" when updated
class EngineTest : public testing::Test {
  protected:
    EngineTest() {
        root.add("leaf", leaf);
        root.add("text", text);
        root.add("bare", bare);
        root.add("probe", probe);
        root.add("a", a);
        a.add("boom", boom);
        a.add("length", length);
        a.add("int", intThrower);
        a.add("invalid", invalid);
    }

    int execute(DataModelEngine& engine, dme::Method method, const std::string& uri,
                const SerializationInfo& in = SerializationInfo()) {
        return engine.execute(method, uri, Arguments(), in, out);
    }

    std::vector<std::string> log;
    TestParent root{ALL_METHODS};
    TestParent a{ALL_METHODS};
    StringLeaf leaf{"hello"};
    TextLeaf text{ALL_METHODS, "before"};
    BareValue bare{ALL_METHODS};
    std::string seenUser;
    std::vector<Arguments::Pair> seenArguments;
    FunctionLeaf probe{[this](Context& ctx, const SerializationInfo&, SerializationInfo&) {
        seenUser = ctx.requestInfo().session().name();
        seenArguments = ctx.arguments().pairs();
        return 0;
    }};
    FunctionLeaf boom{throwing([] { throw std::runtime_error("boom"); })};
    FunctionLeaf length{throwing([] { throw std::length_error("too long"); })};
    FunctionLeaf intThrower{throwing([] { throw 42; })};
    FunctionLeaf invalid{FunctionLeaf::Operation(),
                         throwing([] { dme::Exception::throwStringTooLong("abcdef", 4); })};
    SerializationInfo out;
};

// ---- DataModel construction --------------------------------------------------------------

// The four argument lists of the DataModel constructors, each with an owned root (`Value*`)
// and with a borrowed one (`Value&`): eight constructors in all.
class DataModelConstructionTest : public testing::Test {
  protected:
    struct Form {
        std::string name;
        std::function<DataModel*(Value*)> owning;
        std::function<DataModel*(Value&)> borrowing;
        bool takesExceptionHandlers;
        bool takesExtensionHandlers;
    };

    DataModelConstructionTest() {
        exceptionHandlers.registerHandler(handlerFor(typeid(std::runtime_error), answering(42)));
    }

    std::vector<Form> forms() {
        const AllowedMethods allowed = ALLOWED;
        return {
            {"root, lexicon, methods",
             [=](Value* root) { return new DataModel(root, lexicon(), allowed); },
             [=](Value& root) { return new DataModel(root, lexicon(), allowed); }, false, false},
            {"root, lexicon, methods, exception handlers",
             [=](Value* root) {
                 return new DataModel(root, lexicon(), allowed, exceptionHandlers);
             },
             [=](Value& root) {
                 return new DataModel(root, lexicon(), allowed, exceptionHandlers);
             },
             true, false},
            {"root, lexicon, methods, extension handlers",
             [=](Value* root) { return new DataModel(root, lexicon(), allowed, extensions); },
             [=](Value& root) { return new DataModel(root, lexicon(), allowed, extensions); },
             false, true},
            {"root, lexicon, methods, exception handlers, extension handlers",
             [=](Value* root) {
                 return new DataModel(root, lexicon(), allowed, exceptionHandlers, extensions);
             },
             [=](Value& root) {
                 return new DataModel(root, lexicon(), allowed, exceptionHandlers, extensions);
             },
             true, true},
        };
    }

    static constexpr std::uint32_t ALLOWED = AllowedMethods::R | AllowedMethods::B;

    std::vector<std::string> log;
    RecordingHandler handlerA{"A", log};
    RecordingHandler handlerB{"B", log};
    ExceptionHandlers exceptionHandlers;
    DataModel::ExtensionHandlers extensions{handlerA, handlerB};
};

TEST_F(DataModelConstructionTest, EveryPointerFormOwnsAndDeletesTheRoot) {
    for (const Form& form : forms()) {
        SCOPED_TRACE(form.name);
        bool destroyed = false;
        std::unique_ptr<DataModel> model(form.owning(new DestructionWitness(destroyed)));
        EXPECT_FALSE(destroyed);
        model.reset();
        EXPECT_TRUE(destroyed);
    }
}

TEST_F(DataModelConstructionTest, EveryReferenceFormBorrowsTheRoot) {
    for (const Form& form : forms()) {
        SCOPED_TRACE(form.name);
        bool destroyed = false;
        {
            DestructionWitness root(destroyed);
            std::unique_ptr<DataModel>(form.borrowing(root)).reset();
            EXPECT_FALSE(destroyed);
        }
        EXPECT_TRUE(destroyed);
    }
}

TEST_F(DataModelConstructionTest, EveryFormKeepsRootLexiconAndAllowedMethods) {
    for (const Form& form : forms()) {
        SCOPED_TRACE(form.name);
        BareValue root(ALL_METHODS);
        std::unique_ptr<DataModel> model(form.borrowing(root));
        EXPECT_EQ(model->root(), &root);
        EXPECT_EQ(model->lexicon(), &lexicon());
        EXPECT_EQ(model->allowedMethods(), AllowedMethods(0x12));
    }
}

TEST_F(DataModelConstructionTest, EveryFormInstallsTheAllowedMethodsAsTheRootsStaticPolicy) {
    for (const Form& form : forms()) {
        SCOPED_TRACE(form.name);
        auto* root = new BareValue(ALL_METHODS);
        std::unique_ptr<DataModel> model(form.owning(root));
        const auto* policy = dynamic_cast<const dme::StaticPolicy*>(root->permissionPolicy());
        ASSERT_NE(policy, nullptr);
        EXPECT_EQ(policy->rights(), AllowedMethods(0x12));
    }
}

TEST_F(DataModelConstructionTest, FormsWithExceptionHandlersCopyTheTable) {
    for (const Form& form : forms()) {
        SCOPED_TRACE(form.name);
        FunctionLeaf root(throwing([] { throw std::runtime_error("boom"); }));
        std::unique_ptr<DataModel> model(form.borrowing(root));
        dme::test::Request request(dme::READ, "/");
        testing::internal::CaptureStderr();
        const int status =
            dme::processRequest(model.get(), request.context(), SerializationInfo(), request.out());
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(status, form.takesExceptionHandlers ? 42 : 12);
    }
}

TEST_F(DataModelConstructionTest, FormsWithExtensionHandlersKeepTheirOrder) {
    for (const Form& form : forms()) {
        SCOPED_TRACE(form.name);
        log.clear();
        BareValue root(ALL_METHODS);
        std::unique_ptr<DataModel> model(form.borrowing(root));
        model->init();
        if (form.takesExtensionHandlers) {
            EXPECT_EQ(log, (std::vector<std::string>{"A.init", "B.init"}));
        } else {
            EXPECT_TRUE(log.empty());
        }
    }
}

TEST_F(DataModelConstructionTest, TheRootPolicyDecidesForInheritingNodes) {
    TestParent root(ALL_METHODS);
    StringLeaf leaf("hello");
    root.add("leaf", leaf);
    DataModel model(root, lexicon(), AllowedMethods::R | AllowedMethods::B);
    DataModelEngine engine(model, "policy");
    SerializationInfo body;
    body.setValue("changed");
    SerializationInfo out;
    EXPECT_EQ(engine.execute(dme::UPDATE, "/leaf", Arguments(), body, out), dme::result::FORBIDDEN);
    EXPECT_EQ(leaf.updates(), 0);
    EXPECT_EQ(engine.execute(dme::READ, "/leaf", Arguments(), SerializationInfo(), out),
              dme::result::DONE);
    EXPECT_EQ(formatJson(out), "\"hello\"");
}

// ---- DataModel operations ----------------------------------------------------------------

class DataModelTest : public testing::Test {
  protected:
    std::vector<std::string> log;
    RecordingHandler handlerA{"A", log};
    RecordingHandler handlerB{"B", log};
    BareValue root{ALL_METHODS};
    DataModel model{root, lexicon(), ALL_METHODS, DataModel::ExtensionHandlers{handlerA, handlerB}};
    dme::test::Request request{dme::READ, "/"};
};

TEST_F(DataModelTest, InitDetachesTheRootFromAnyParent) {
    TestParent formerParent(ALL_METHODS);
    formerParent.add("child", root);
    ASSERT_EQ(root.parent(), &formerParent);
    model.init();
    EXPECT_EQ(root.parent(), nullptr);
}

TEST_F(DataModelTest, PreProcessStopsAtAndReturnsTheFirstNonZeroResult) {
    handlerA.onPreProcess = [](Context&) { return 5; };
    EXPECT_EQ(model.preProcess(request.context()), 5);
    EXPECT_EQ(log, (std::vector<std::string>{"A.preProcess"}));
}

TEST_F(DataModelTest, PreProcessReturnsZeroWhenEveryHandlerDoes) {
    EXPECT_EQ(model.preProcess(request.context()), 0);
    EXPECT_EQ(log, (std::vector<std::string>{"A.preProcess", "B.preProcess"}));
}

TEST_F(DataModelTest, PostProcessRunsInReverseAndStopsAtTheFirstNonZeroResult) {
    handlerB.onPostProcess = [](int) { return 9; };
    EXPECT_EQ(model.postProcess(3, request.context()), 9);
    EXPECT_EQ(log, (std::vector<std::string>{"B.postProcess(3)"}));
}

TEST_F(DataModelTest, PostProcessReturnsZeroWhenEveryHandlerDoes) {
    EXPECT_EQ(model.postProcess(0, request.context()), 0);
    EXPECT_EQ(log, (std::vector<std::string>{"B.postProcess(0)", "A.postProcess(0)"}));
}

TEST_F(DataModelTest, TerminateRunsTheHandlersInReverseOrder) {
    model.terminate();
    EXPECT_EQ(log, (std::vector<std::string>{"B.terminate", "A.terminate"}));
}

TEST_F(DataModelTest, RegisteredExtensionHandlersAreAppendedWithoutDuplicateCheck) {
    model.registerExtensionHandler(handlerA);
    model.init();
    EXPECT_EQ(log, (std::vector<std::string>{"A.init", "B.init", "A.init"}));
}

TEST_F(DataModelTest, TheFirstRegisteredExceptionHandlerForATypeWins) {
    FunctionLeaf throwingRoot(throwing([] { throw std::runtime_error("boom"); }));
    DataModel throwingModel(throwingRoot, lexicon(), ALL_METHODS);
    throwingModel.registerExceptionHandler(handlerFor(typeid(std::runtime_error), answering(21)));
    throwingModel.registerExceptionHandler(handlerFor(typeid(std::runtime_error), answering(22)));
    EXPECT_EQ(
        dme::processRequest(&throwingModel, request.context(), SerializationInfo(), request.out()),
        21);
}

// ---- Engine construction and life cycle --------------------------------------------------

TEST(DataModelEngineLifeTest, ANullDataModelIsRefused) {
    try {
        DataModelEngine engine(static_cast<DataModel*>(nullptr), "none");
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "No data model provided");
    }
}

TEST(DataModelEngineLifeTest, AnEngineBuiltFromAPointerDeletesTheModelAndItsRoot) {
    bool destroyed = false;
    {
        DataModelEngine engine(
            new DataModel(new DestructionWitness(destroyed), lexicon(), ALL_METHODS), "owner");
        EXPECT_FALSE(destroyed);
    }
    EXPECT_TRUE(destroyed);
}

TEST(DataModelEngineLifeTest, AnEngineBuiltFromAReferenceLeavesTheModel) {
    bool destroyed = false;
    DestructionWitness root(destroyed);
    DataModel model(root, lexicon(), ALL_METHODS);
    { DataModelEngine engine(model, "borrower"); }
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(model.root(), &root);
    EXPECT_EQ(model.lexicon(), &lexicon());
}

TEST(DataModelEngineLifeTest, ConstructionInitialisesTheModelAndCreatesANotifierManager) {
    std::vector<std::string> log;
    RecordingHandler handler("A", log);
    BareValue root(ALL_METHODS);
    DataModel model(root, lexicon(), ALL_METHODS, DataModel::ExtensionHandlers{handler});
    DataModelEngine engine(model, "init");
    EXPECT_EQ(log, (std::vector<std::string>{"A.init"}));
    EXPECT_NE(engine.notifierManager(), nullptr);
}

TEST(DataModelEngineLifeTest, InitAgainReinitialisesTheModelAndKeepsTheNotifierManager) {
    std::vector<std::string> log;
    RecordingHandler handler("A", log);
    BareValue root(ALL_METHODS);
    DataModel model(root, lexicon(), ALL_METHODS, DataModel::ExtensionHandlers{handler});
    DataModelEngine engine(model, "init");
    const dme::NotifierManager* manager = engine.notifierManager();
    engine.init();
    EXPECT_EQ(log, (std::vector<std::string>{"A.init", "A.init"}));
    EXPECT_EQ(engine.notifierManager(), manager);
}

TEST(DataModelEngineLifeTest, TerminateRunsTheHandlersAndTheDestructorRunsThemAgain) {
    std::vector<std::string> log;
    RecordingHandler handlerA("A", log);
    RecordingHandler handlerB("B", log);
    BareValue root(ALL_METHODS);
    DataModel model(root, lexicon(), ALL_METHODS, DataModel::ExtensionHandlers{handlerA, handlerB});
    {
        DataModelEngine engine(model, "terminate");
        log.clear();
        engine.terminate();
        EXPECT_EQ(log, (std::vector<std::string>{"B.terminate", "A.terminate"}));
    }
    EXPECT_EQ(log, (std::vector<std::string>{"B.terminate", "A.terminate", "B.terminate",
                                             "A.terminate"}));
}

TEST(DataModelEngineLifeTest, TheDestructorTerminatesTheModel) {
    std::vector<std::string> log;
    RecordingHandler handler("A", log);
    BareValue root(ALL_METHODS);
    DataModel model(root, lexicon(), ALL_METHODS, DataModel::ExtensionHandlers{handler});
    { DataModelEngine engine(model, "destructor"); }
    EXPECT_EQ(log, (std::vector<std::string>{"A.init", "A.terminate"}));
}

TEST(DataModelEngineLifeTest, LexiconAndDataModelAreTheModelsOwn) {
    BareValue root(ALL_METHODS);
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "accessors");
    const DataModelEngine& constEngine = engine;
    EXPECT_EQ(engine.lexicon(), &lexicon());
    EXPECT_EQ(engine.dataModel(), &model);
    EXPECT_EQ(constEngine.dataModel(), &model);
}

// ---- Execute ---------------------------------------------------------------------------

TEST_F(EngineTest, ExecuteServesTheRequestFromTheTree) {
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "execute");
    EXPECT_EQ(execute(engine, dme::READ, "/leaf"), dme::result::DONE);
    EXPECT_EQ(formatJson(out), "\"hello\"");
}

TEST_F(EngineTest, ExecuteReturnsTheTreesStatus) {
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "execute");
    EXPECT_EQ(execute(engine, dme::READ, "/nope"), dme::result::NOT_FOUND);
}

TEST_F(EngineTest, MethodZeroGives10AndLeavesOutUntouched) {
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "invalid");
    out.addMember("kept").setValue(1);
    EXPECT_EQ(execute(engine, static_cast<dme::Method>(0), "/leaf"), dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(formatJson(out), "{\"kept\":1}");
    EXPECT_EQ(leaf.reads(), 0);
}

TEST_F(EngineTest, AMethodOutsideTheMethodMaskGives10) {
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "invalid");
    EXPECT_EQ(execute(engine, static_cast<dme::Method>(0x10), "/leaf"),
              dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(leaf.reads(), 0);
}

TEST_F(EngineTest, TheFormWithoutRequestInfoRunsAsTheAnonymousUser) {
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "anonymous");
    EXPECT_EQ(execute(engine, dme::READ, "/probe"), dme::result::DONE);
    EXPECT_EQ(seenUser, "#unknown");
}

TEST_F(EngineTest, TheFormWithRequestInfoRunsOnBehalfOfItsSession) {
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "session");
    const RequestInfo alice(dme::SessionInfo(dme::UserInfo("alice", 7, {}), {}), {});
    EXPECT_EQ(engine.execute(dme::READ, "/probe", Arguments(), alice, SerializationInfo(), out),
              dme::result::DONE);
    EXPECT_EQ(seenUser, "alice");
}

TEST_F(EngineTest, TheArgumentsReachTheTree) {
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "arguments");
    EXPECT_EQ(engine.execute(dme::READ, "/probe", Arguments("x=1&y=2"), SerializationInfo(), out),
              0);
    EXPECT_EQ(seenArguments, (std::vector<Arguments::Pair>{{"x", "1"}, {"y", "2"}}));
}

TEST_F(EngineTest, AnExpandLevelOutOfRangeLeavesExecuteAsADmeException) {
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "expand");
    EXPECT_THROW(
        engine.execute(dme::READ, "/leaf", Arguments("expand=-1"), SerializationInfo(), out),
        dme::Exception);
    EXPECT_EQ(leaf.reads(), 0);
}

// ---- Extension handlers during a request ------------------------------------------------

TEST_F(EngineTest, HandlersRunAThenBBeforeTheRequestAndBThenAAfterIt) {
    RecordingHandler handlerA("A", log);
    RecordingHandler handlerB("B", log);
    DataModel model(root, lexicon(), ALL_METHODS, DataModel::ExtensionHandlers{handlerA, handlerB});
    DataModelEngine engine(model, "order");
    EXPECT_EQ(execute(engine, dme::READ, "/nope"), dme::result::NOT_FOUND);
    EXPECT_EQ(log, (std::vector<std::string>{"A.init", "B.init", "A.preProcess", "B.preProcess",
                                             "B.postProcess(3)", "A.postProcess(3)"}));
}

TEST_F(EngineTest, APreProcessResultDoesNotStopTheRequest) {
    RecordingHandler handler("A", log);
    handler.onPreProcess = [](Context&) { return 5; };
    DataModel model(root, lexicon(), ALL_METHODS, DataModel::ExtensionHandlers{handler});
    DataModelEngine engine(model, "preProcess");
    EXPECT_EQ(execute(engine, dme::READ, "/leaf"), dme::result::DONE);
    EXPECT_EQ(formatJson(out), "\"hello\"");
    EXPECT_EQ(leaf.reads(), 1);
}

TEST_F(EngineTest, APostProcessResultDoesNotChangeTheStatus) {
    RecordingHandler handler("A", log);
    handler.onPostProcess = [](int) { return 5; };
    DataModel model(root, lexicon(), ALL_METHODS, DataModel::ExtensionHandlers{handler});
    DataModelEngine engine(model, "postProcess");
    EXPECT_EQ(execute(engine, dme::READ, "/leaf"), dme::result::DONE);
}

TEST_F(EngineTest, PreProcessThrowingInvalidArgumentGives10) {
    RecordingHandler handler("A", log);
    handler.onPreProcess = [](Context&) -> int { throw std::invalid_argument("refused"); };
    DataModel model(root, lexicon(), ALL_METHODS, DataModel::ExtensionHandlers{handler});
    DataModelEngine engine(model, "preProcess");
    EXPECT_EQ(execute(engine, dme::READ, "/leaf"), dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(leaf.reads(), 0);
}

TEST_F(EngineTest, PreProcessThrowingAnotherExceptionLeavesExecute) {
    RecordingHandler handler("A", log);
    handler.onPreProcess = [](Context&) -> int { throw std::runtime_error("refused"); };
    DataModel model(root, lexicon(), ALL_METHODS, DataModel::ExtensionHandlers{handler});
    DataModelEngine engine(model, "preProcess");
    EXPECT_THROW(execute(engine, dme::READ, "/leaf"), std::runtime_error);
    EXPECT_EQ(leaf.reads(), 0);
}

TEST_F(EngineTest, AnExceptionFromPostProcessGoesToTheExceptionHandlers) {
    RecordingHandler handler("A", log);
    handler.onPostProcess = [](int) -> int { throw std::runtime_error("late"); };
    DataModel model(root, lexicon(), ALL_METHODS,
                    ExceptionHandlers({handlerFor(typeid(std::runtime_error), answering(17))}),
                    DataModel::ExtensionHandlers{handler});
    DataModelEngine engine(model, "postProcess");
    EXPECT_EQ(execute(engine, dme::READ, "/leaf"), 17);
}

// ---- Exceptions from the tree ------------------------------------------------------------

TEST_F(EngineTest, AnUnclaimedStandardExceptionGives12AndATwoLineReport) {
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "unclaimed");
    testing::internal::CaptureStderr();
    const int status = execute(engine, dme::READ, "/a/boom");
    const std::string report = testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, dme::result::UNHANDLED);
    EXPECT_EQ(report,
              "ERROR - Uncatched exception \"std::runtime_error\" in DME while processing "
              "request: READ \"/a/boom\" (in:\"/a/boom\")\n"
              "Exception text: boom\n");
}

TEST_F(EngineTest, TheUnclaimedExceptionReportGoesToTheInstalledDiagnosticHandler) {
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "unclaimed");
    dme::test::RecordedDiagnostics recorded;
    testing::internal::CaptureStderr();
    EXPECT_EQ(execute(engine, dme::READ, "/a/boom"), dme::result::UNHANDLED);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(recorded.reports,
              std::vector<std::string>{
                  "ERROR - Uncatched exception \"std::runtime_error\" in DME while processing "
                  "request: READ \"/a/boom\" (in:\"/a/boom\")\n"
                  "Exception text: boom\n"});
}

TEST_F(EngineTest, TheReportNamesTheDynamicTypeOfTheException) {
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "unclaimed");
    testing::internal::CaptureStderr();
    const int status = execute(engine, dme::READ, "/a/length");
    const std::string report = testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, dme::result::UNHANDLED);
    EXPECT_EQ(report,
              "ERROR - Uncatched exception \"std::length_error\" in DME while processing "
              "request: READ \"/a/length\" (in:\"/a/length\")\n"
              "Exception text: too long\n");
}

TEST_F(EngineTest, AHandlerThatDeclinesLeaves12AndTheReport) {
    DataModel model(root, lexicon(), ALL_METHODS,
                    ExceptionHandlers({handlerFor(typeid(std::runtime_error), answering(12))}));
    DataModelEngine engine(model, "declined");
    testing::internal::CaptureStderr();
    const int status = execute(engine, dme::READ, "/a/boom");
    const std::string report = testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, dme::result::UNHANDLED);
    EXPECT_EQ(report,
              "ERROR - Uncatched exception \"std::runtime_error\" in DME while processing "
              "request: READ \"/a/boom\" (in:\"/a/boom\")\n"
              "Exception text: boom\n");
}

TEST_F(EngineTest, AClaimedExceptionGivesTheHandlersStatusWithoutReport) {
    DataModel model(root, lexicon(), ALL_METHODS,
                    ExceptionHandlers({handlerFor(typeid(std::runtime_error), answering(7))}));
    DataModelEngine engine(model, "claimed");
    testing::internal::CaptureStderr();
    const int status = execute(engine, dme::READ, "/a/boom");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(status, dme::result::UNKNOWN_METHOD);
}

TEST_F(EngineTest, AThrownIntGives1WithoutOutput) {
    DataModel model(root, lexicon(), ALL_METHODS,
                    ExceptionHandlers({handlerFor(typeid(std::exception), answering(7))}));
    DataModelEngine engine(model, "int");
    testing::internal::CaptureStderr();
    const int status = execute(engine, dme::READ, "/a/int");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(status, dme::result::FAILED);
    EXPECT_EQ(formatJson(out), "null");
}

TEST_F(EngineTest, AnExceptionHandlerTurnsADmeExceptionIntoAStatusAndAnErrorDocument) {
    DataModel model(root, lexicon(), ALL_METHODS,
                    ExceptionHandlers({handlerFor(typeid(dme::Exception), writeErrorDocument)}));
    DataModelEngine engine(model, "errors");
    SerializationInfo body;
    body.setValue("abcdef");
    EXPECT_EQ(execute(engine, dme::UPDATE, "/a/invalid", body), dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(formatJson(out), "{\"error\":\"String too long\",\"details\":[\"abcdef\",\"4\"]}");
}

TEST_F(EngineTest, AnExceptionHandlerRegisteredOnTheModelLaterIsUsed) {
    DataModel model(root, lexicon(), ALL_METHODS);
    DataModelEngine engine(model, "errors");
    model.registerExceptionHandler(handlerFor(typeid(dme::Exception), writeErrorDocument));
    SerializationInfo body;
    body.setValue("abcdef");
    EXPECT_EQ(execute(engine, dme::UPDATE, "/a/invalid", body), dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(formatJson(out), "{\"error\":\"String too long\",\"details\":[\"abcdef\",\"4\"]}");
}

// ---- Subscriptions -----------------------------------------------------------------------

class EngineSubscriptionTest : public EngineTest {
  protected:
    EngineSubscriptionTest() : model(root, lexicon(), ALL_METHODS), engine(model, "subscribe") {}

    int changeText(const std::string& value) {
        SerializationInfo body;
        body.addMember("value").setValue(value);
        return execute(engine, dme::UPDATE, "/text", body);
    }

    unsigned int subscriptions() const { return engine.notifierManager()->subscriptionNb(); }

    WaitingObserver observer;  // outlives the engine, whose thread may call it
    DataModel model;
    DataModelEngine engine;
};

TEST_F(EngineSubscriptionTest, ImmediateNotificationNotifiesOnceAtOnce) {
    EXPECT_EQ(engine.subscribe(observer, "/text", Arguments{{"x", "1"}}, hours(1),
                               ObserverOption::IMMEDIATE_NOTIFICATION),
              0);
    ASSERT_TRUE(observer.waitFor(1));
    const auto notifications = observer.notifications();
    ASSERT_EQ(notifications.size(), 1u);
    EXPECT_EQ(notifications[0].uri, "/text");
    EXPECT_EQ(notifications[0].arguments, (std::vector<Arguments::Pair>{{"x", "1"}}));
}

TEST_F(EngineSubscriptionTest, ChangesOnlySendsNoFirstNotification) {
    WaitingObserver immediate;
    EXPECT_EQ(
        engine.subscribe(observer, "/text", Arguments(), hours(1), ObserverOption::CHANGES_ONLY),
        0);
    EXPECT_EQ(engine.subscribe(immediate, "/text", Arguments(), hours(1),
                               ObserverOption::IMMEDIATE_NOTIFICATION),
              0);
    ASSERT_TRUE(immediate.waitFor(1));
    // The notifier thread serves subscriptions in id order, so a first notification of the
    // earlier subscription would have been delivered before this one.
    EXPECT_EQ(observer.count(), 0u);
}

TEST_F(EngineSubscriptionTest, ASubscriptionRegistersWithTheNotifierManagerAndTheNode) {
    EXPECT_EQ(
        engine.subscribe(observer, "/text", Arguments(), hours(1), ObserverOption::CHANGES_ONLY),
        0);
    EXPECT_EQ(subscriptions(), 1u);
    EXPECT_EQ(text.calls(), (std::vector<std::string>{"subscribeToValue"}));
}

TEST_F(EngineSubscriptionTest, AnUnknownUriGivesTheTreesStatusAndLeavesNoSubscription) {
    EXPECT_EQ(engine.subscribe(observer, "/nope", Arguments(), hours(1),
                               ObserverOption::IMMEDIATE_NOTIFICATION),
              3);
    EXPECT_EQ(subscriptions(), 0u);
}

TEST_F(EngineSubscriptionTest, ANodeThatCannotBeObservedGives8AndLeavesNoSubscription) {
    EXPECT_EQ(
        engine.subscribe(observer, "/bare", Arguments(), hours(1), ObserverOption::CHANGES_ONLY),
        8);
    EXPECT_EQ(subscriptions(), 0u);
}

TEST_F(EngineSubscriptionTest, AnExceptionDuringSubscribeLeavesNoSubscription) {
    RecordingHandler handler("A", log);
    handler.onPreProcess = [](Context&) -> int { throw std::runtime_error("refused"); };
    DataModel refusingModel(root, lexicon(), ALL_METHODS, DataModel::ExtensionHandlers{handler});
    DataModelEngine refusingEngine(refusingModel, "refusing");
    EXPECT_THROW(refusingEngine.subscribe(observer, "/text", Arguments(), hours(1),
                                          ObserverOption::CHANGES_ONLY),
                 std::runtime_error);
    EXPECT_EQ(refusingEngine.notifierManager()->subscriptionNb(), 0u);
}

TEST_F(EngineSubscriptionTest, AChangeNotifiesOnceTheIntervalHasPassed) {
    ASSERT_EQ(engine.subscribe(observer, "/text", Arguments{{"x", "1"}}, milliseconds(20),
                               ObserverOption::CHANGES_ONLY),
              0);
    EXPECT_EQ(changeText("after"), 0);
    ASSERT_TRUE(observer.waitFor(1));
    const auto notifications = observer.notifications();
    ASSERT_EQ(notifications.size(), 1u);
    EXPECT_EQ(notifications[0].uri, "/text");
    EXPECT_EQ(notifications[0].arguments, (std::vector<Arguments::Pair>{{"x", "1"}}));
}

TEST_F(EngineSubscriptionTest, UnsubscribeRemovesTheSubscriptionAndReleasesTheNode) {
    ASSERT_EQ(
        engine.subscribe(observer, "/text", Arguments(), hours(1), ObserverOption::CHANGES_ONLY),
        0);
    engine.unsubscribe(observer);
    EXPECT_EQ(subscriptions(), 0u);
    EXPECT_EQ(text.calls(), (std::vector<std::string>{"subscribeToValue", "unsubscribeToValue"}));
    ASSERT_NE(text.subscriberManager(), nullptr);
    EXPECT_TRUE(text.subscriberManager()->subscribers().empty());
}

TEST_F(EngineSubscriptionTest, AReleasedNodeCanBeSubscribedAgain) {
    ASSERT_EQ(
        engine.subscribe(observer, "/text", Arguments(), hours(1), ObserverOption::CHANGES_ONLY),
        0);
    engine.unsubscribe(observer);
    EXPECT_EQ(engine.subscribe(observer, "/text", Arguments(), milliseconds(0),
                               ObserverOption::CHANGES_ONLY),
              0);
    EXPECT_EQ(subscriptions(), 1u);
    EXPECT_EQ(text.calls(), (std::vector<std::string>{"subscribeToValue", "unsubscribeToValue",
                                                      "subscribeToValue"}));
    EXPECT_EQ(changeText("again"), 0);
    EXPECT_TRUE(observer.waitFor(1));
}

TEST_F(EngineSubscriptionTest, UnsubscribeStopsTheObserversNotificationsOnly) {
    WaitingObserver witness;
    ASSERT_EQ(engine.subscribe(observer, "/text", Arguments(), milliseconds(0),
                               ObserverOption::CHANGES_ONLY),
              0);
    ASSERT_EQ(engine.subscribe(witness, "/text", Arguments(), milliseconds(0),
                               ObserverOption::CHANGES_ONLY),
              0);
    engine.unsubscribe(observer);
    EXPECT_EQ(subscriptions(), 1u);
    EXPECT_EQ(changeText("after"), 0);
    ASSERT_TRUE(witness.waitFor(1));
    // The earlier subscription would have been served first in the same pass.
    EXPECT_EQ(observer.count(), 0u);
    EXPECT_EQ(text.calls(), (std::vector<std::string>{"subscribeToValue", "update"}));
}

}  // namespace
