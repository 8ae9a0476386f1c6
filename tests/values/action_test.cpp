#include "dme/action.h"

#include <cxxtools/serializationinfo.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "application.h"
#include "dme/atomic_value.h"
#include "dme/container.h"
#include "dme/engine.h"
#include "dme/exception.h"
#include "dme/json.h"
#include "dme/path.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "leaf_nodes.h"
#include "request.h"
#include "test_nodes.h"

namespace dme {
namespace {

using cxxtools::SerializationInfo;

const AllowedMethods C = AllowedMethods::C;
const AllowedMethods RU = AllowedMethods::R | AllowedMethods::U;

// The input document of the JSON text `body`; the empty document for "".
SerializationInfo input(const std::string& body) {
    return body.empty() ? SerializationInfo() : parseJson(body);
}

// Hangs `action` at "/a/<name>" below a root that grants `rights`, and runs requests there.
class ActionTree {
  public:
    explicit ActionTree(Value& action, const std::string& name = "go",
                        AllowedMethods rights = test::ALL_METHODS)
        : uri_("/a/" + name) {
        root_.add("a", a_);
        a_.add(name, action);
        test::attachRoot(root_, rights);
    }

    // The result of `method` on the action (or on `uri` when given) with the JSON `body`; the
    // JSON answer is in `answer` and the request's context stays for inspection.
    int run(Method method, const std::string& body = "", const std::string& uri = "") {
        request_ = std::make_unique<test::Request>(method, uri.empty() ? uri_ : uri);
        const int rc = request_->run(root_, input(body));
        answer = formatJson(request_->out());
        return rc;
    }

    // Runs `method` on the action with a context of its own, which the caller inspects.
    int run(Context& ctx, const std::string& body) {
        SerializationInfo out;
        const int rc = root_.process(ctx, input(body), out);
        answer = formatJson(out);
        return rc;
    }

    Context& context() { return request_->context(); }
    const std::string& uri() const { return uri_; }

    std::string answer;

  private:
    std::string uri_;
    test::TestParent root_{test::ALL_METHODS};
    test::TestParent a_{test::ALL_METHODS};
    std::unique_ptr<test::Request> request_;
};

// An action that records its executions, answers {"done": true} and returns a fixed result.
class RecordingAction : public Action {
  public:
    RecordingAction() = default;
    explicit RecordingAction(AllowedMethods allowed, int result = result::DONE)
        : Action(allowed), result_(result) {}

    int execute(Context&, const SerializationInfo& in, SerializationInfo& out) override {
        inputs.push_back(formatJson(in));
        out.addMember("done").setValue(true);
        return result_;
    }

    std::vector<std::string> inputs;

  private:
    int result_ = result::DONE;
};

// A text leaf that tells when it is destroyed.
class TrackedText : public StaticAtomicValue<std::string> {
  public:
    explicit TrackedText(bool& destroyed)
        : StaticAtomicValue<std::string>("", RU), destroyed_(destroyed) {}
    ~TrackedText() override { destroyed_ = true; }

  private:
    bool& destroyed_;
};

std::string stored(StaticAtomicValue<std::string>& text) {
    test::Request request(READ, "/");
    return text.getValue(request.context());
}

void expectTooLong(const Exception& e, const std::string& text, const std::string& limit) {
    EXPECT_EQ(e.id, Error::STRING_TOO_LONG);
    EXPECT_EQ(e.message, "String too long");
    EXPECT_EQ(e.detail1, text);
    EXPECT_EQ(e.detail2, limit);
}

// ---- Action -------------------------------------------------------------------------------

TEST(ActionTest, TheDefaultConstructorAllowsCreateOnly) {
    RecordingAction action;
    EXPECT_EQ(action.allowedMethods(), C);
    EXPECT_TRUE(action.alwaysExpanded());
}

TEST(ActionTest, GivenAllowedMethodsAreKeptUnchanged) {
    RecordingAction action(AllowedMethods(0x1F));
    EXPECT_EQ(action.allowedMethods(), AllowedMethods(0x1F));
    EXPECT_TRUE(action.alwaysExpanded());
}

TEST(ActionTest, BrowseAtTheRequestedNodeReturnsMinusOne) {
    RecordingAction action;
    test::Request request(CREATE, "/");
    SerializationInfo out;
    EXPECT_EQ(action.browse(request.context(), SerializationInfo(), out),
              dme::result::PATH_ENDS_HERE);
}

TEST(ActionTest, BrowseWithASegmentLeftReturnsFour) {
    RecordingAction action;
    test::Request request(CREATE, "/x");
    SerializationInfo out;
    EXPECT_EQ(action.browse(request.context(), SerializationInfo(), out), dme::result::NO_CHILDREN);
}

TEST(ActionTest, CreateExecutesWithTheRequestsDocuments) {
    RecordingAction action;
    ActionTree tree(action);
    EXPECT_EQ(tree.run(CREATE, "{\"x\":1}"), result::DONE);
    EXPECT_EQ(action.inputs, std::vector<std::string>{"{\"x\":1}"});
    EXPECT_EQ(tree.answer, "{\"done\":true}");
}

TEST(ActionTest, CreateReturnsTheResultOfExecute) {
    RecordingAction action(C, 5);
    EXPECT_EQ(ActionTree(action).run(CREATE), 5);
}

TEST(ActionTest, ReadAnswersTheActionsUri) {
    RecordingAction action(AllowedMethods::C | AllowedMethods::R);
    ActionTree tree(action, "go");
    EXPECT_EQ(tree.run(READ), result::DONE);
    EXPECT_EQ(tree.answer, "\"/a/go\"");
    EXPECT_TRUE(action.inputs.empty());
}

TEST(ActionTest, CreateBelowAnActionIsRefusedWithTwo) {
    RecordingAction action;
    ActionTree tree(action, "go");
    EXPECT_EQ(tree.run(CREATE, "", "/a/go/x"), result::NOT_ALLOWED);
    EXPECT_TRUE(action.inputs.empty());
}

TEST(ActionTest, CreateBelowAnActionThatAllowsBrowsingFindsNoChildren) {
    RecordingAction action(AllowedMethods::C | AllowedMethods::B);
    ActionTree tree(action, "go");
    EXPECT_EQ(tree.run(CREATE, "", "/a/go/x"), result::NO_CHILDREN);
    EXPECT_TRUE(action.inputs.empty());
}

TEST(ActionTest, UpdateAndDeleteAreNotSupportedEvenWhenAllowed) {
    RecordingAction action(AllowedMethods(0x0F));
    ActionTree tree(action);
    EXPECT_EQ(tree.run(UPDATE, "1"), result::NOT_SUPPORTED);
    EXPECT_EQ(tree.run(DELETE), result::NOT_SUPPORTED);
    EXPECT_TRUE(action.inputs.empty());
}

TEST(ActionTest, CreateWithoutThePermissionIsForbidden) {
    RecordingAction action;
    ActionTree tree(action, "go", AllowedMethods::R | AllowedMethods::B);
    EXPECT_EQ(tree.run(CREATE), result::FORBIDDEN);
    EXPECT_TRUE(action.inputs.empty());
}

// ---- ActionStub ---------------------------------------------------------------------------

TEST(ActionStubTest, ReturnsItsResultOnEveryCreate) {
    ActionStub stub(7);
    ActionTree tree(stub);
    EXPECT_EQ(tree.run(CREATE), dme::result::UNKNOWN_METHOD);
    EXPECT_EQ(tree.run(CREATE), dme::result::UNKNOWN_METHOD);
    EXPECT_EQ(stub.result(), 7);
}

TEST(ActionStubTest, TheMessageIsEmptyBeforeTheFirstExecution) {
    ActionStub stub(7);
    EXPECT_EQ(stub.message(), "");
}

TEST(ActionStubTest, TheFirstExecutionRecordsTheActionsPath) {
    ActionStub stub(7);
    ActionTree(stub, "reboot").run(CREATE);
    EXPECT_EQ(stub.message(), "Executed on path '/a/reboot'");
}

TEST(ActionStubTest, TheMessageKeepsThePathOfTheFirstExecution) {
    ActionStub stub(0);
    ActionTree first(stub, "reboot");
    ASSERT_EQ(first.run(CREATE), dme::result::DONE);
    ActionTree moved(stub, "restart");
    EXPECT_EQ(stub.path(), Path("/a/restart"));
    EXPECT_EQ(moved.run(CREATE), dme::result::DONE);
    EXPECT_EQ(stub.message(), "Executed on path '/a/reboot'");
}

TEST(ActionStubTest, AtTheRootTheMessageNamesTheRootPath) {
    ActionStub stub(0);
    test::attachRoot(stub);
    test::Request request(CREATE, "/");
    EXPECT_EQ(request.run(stub), dme::result::DONE);
    EXPECT_EQ(stub.message(), "Executed on path '/'");
}

TEST(ActionStubTest, AGivenMessageIsKept) {
    ActionStub stub("custom", 0);
    ActionTree tree(stub);
    EXPECT_EQ(tree.run(CREATE), dme::result::DONE);
    EXPECT_EQ(stub.message(), "custom");
}

TEST(ActionStubTest, ExecutionIgnoresTheInputAndWritesNothing) {
    ActionStub stub(3);
    ActionTree tree(stub);
    EXPECT_EQ(tree.run(CREATE, "{\"x\":1}"), dme::result::NOT_FOUND);
    EXPECT_EQ(tree.answer, "null");
}

TEST(ActionStubTest, ReadUpdateAndDeleteAreRefusedWithTwo) {
    ActionStub stub(0);
    ActionTree tree(stub);
    EXPECT_EQ(tree.run(READ), result::NOT_ALLOWED);
    EXPECT_EQ(tree.run(UPDATE, "1"), result::NOT_ALLOWED);
    EXPECT_EQ(tree.run(DELETE), result::NOT_ALLOWED);
    EXPECT_EQ(stub.message(), "");
}

// ---- ActionValue --------------------------------------------------------------------------

TEST(ActionValueTest, TheTargetHangsBelowTheAction) {
    StaticAtomicValue<std::string> text("", RU);
    ActionValue action(text);
    EXPECT_EQ(text.parent(), &action);
    EXPECT_EQ(&action.target(), &text);
}

TEST(ActionValueTest, EveryChildKeyIsTheLibrarysEmptyName) {
    StaticAtomicValue<std::string> text("", RU);
    StaticAtomicValue<std::string> other("", RU);
    ActionValue action(text);
    EXPECT_EQ(&action.getChildKey(&text), &Path::emptyName());
    EXPECT_EQ(&action.getChildKey(&other), &Path::emptyName());
    EXPECT_EQ(&text.getOwnKey(), &Path::emptyName());
}

TEST(ActionValueTest, TheTargetsPathHasNoSegments) {
    StaticAtomicValue<std::string> text("", RU);
    ActionValue action(text);
    ActionTree tree(action, "apply");
    EXPECT_EQ(action.path(), Path("/a/apply"));
    EXPECT_TRUE(text.path().empty());
}

TEST(ActionValueTest, BuiltFromAReferenceLeavesTheTargetAlive) {
    bool destroyed = false;
    TrackedText text(destroyed);
    { ActionValue action(text); }
    EXPECT_FALSE(destroyed);
}

TEST(ActionValueTest, BuiltFromAPointerDeletesTheTarget) {
    bool destroyed = false;
    { ActionValue action(new TrackedText(destroyed)); }
    EXPECT_TRUE(destroyed);
}

TEST(ActionValueTest, AShortEnoughTextIsStored) {
    StaticAtomicValue<std::string> text("", RU, 0, 3);
    ActionValue action(text);
    ActionTree tree(action);
    EXPECT_EQ(tree.run(CREATE, "\"abc\""), result::DONE);
    EXPECT_EQ(stored(text), "abc");
}

TEST(ActionValueTest, ATooLongTextIsRefusedAndNothingStored) {
    StaticAtomicValue<std::string> text("", RU, 0, 3);
    ActionValue action(text);
    ActionTree tree(action);
    try {
        tree.run(CREATE, "\"abcd\"");
        ADD_FAILURE() << "no dme::Exception";
    } catch (const Exception& e) {
        expectTooLong(e, "abcd", "3");
    }
    EXPECT_EQ(stored(text), "");
}

TEST(ActionValueTest, TheMethodIsRestoredAfterExecution) {
    StaticAtomicValue<std::string> text("", RU, 0, 3);
    ActionValue action(text);
    ActionTree tree(action);
    ASSERT_EQ(tree.run(CREATE, "\"abc\""), result::DONE);
    EXPECT_EQ(tree.context().method(), CREATE);
}

TEST(ActionValueTest, TheMethodIsRestoredAfterAFailure) {
    StaticAtomicValue<std::string> text("", RU, 0, 3);
    ActionValue action(text);
    ActionTree tree(action);
    EXPECT_THROW(tree.run(CREATE, "\"abcd\""), Exception);
    EXPECT_EQ(tree.context().method(), CREATE);
}

TEST(ActionValueTest, TheTargetSeesAnUpdateWithoutForcedExpansion) {
    std::vector<Method> methods;
    std::vector<bool> forced;
    test::FunctionLeaf target(nullptr,
                              [&](Context& ctx, const SerializationInfo&, SerializationInfo&) {
                                  methods.push_back(ctx.method());
                                  forced.push_back(ctx.forceExpand());
                                  return result::DONE;
                              });
    ActionValue action(target);
    ActionTree tree(action, "go");
    Context ctx(test::testLexicon(), CREATE, "/a/go", Arguments(), true);
    EXPECT_EQ(tree.run(ctx, "1"), result::DONE);
    EXPECT_EQ(methods, std::vector<Method>{UPDATE});
    EXPECT_EQ(forced, std::vector<bool>{false});
    EXPECT_EQ(ctx.method(), CREATE);
    EXPECT_TRUE(ctx.forceExpand());
}

TEST(ActionValueTest, TheContextIsRestoredWhenTheTargetThrowsAnything) {
    test::FunctionLeaf target(nullptr,
                              [](Context&, const SerializationInfo&, SerializationInfo&) -> int {
                                  throw std::runtime_error("refused");
                              });
    ActionValue action(target);
    ActionTree tree(action, "go");
    Context ctx(test::testLexicon(), CREATE, "/a/go", Arguments(), true);
    EXPECT_THROW(tree.run(ctx, "1"), std::runtime_error);
    EXPECT_EQ(ctx.method(), CREATE);
    EXPECT_TRUE(ctx.forceExpand());
}

TEST(ActionValueTest, TheTargetReceivesTheBodyAndItsResultAndAnswerAreReturned) {
    std::string received;
    test::FunctionLeaf target(nullptr,
                              [&](Context&, const SerializationInfo& in, SerializationInfo& out) {
                                  received = formatJson(in);
                                  out.addMember("accepted").setValue(true);
                                  return 5;
                              });
    ActionValue action(target);
    ActionTree tree(action);
    EXPECT_EQ(tree.run(CREATE, "{\"level\":2}"), 5);
    EXPECT_EQ(received, "{\"level\":2}");
    EXPECT_EQ(tree.answer, "{\"accepted\":true}");
}

TEST(ActionValueTest, ATargetThatDoesNotAllowUpdateGivesTwo) {
    StaticAtomicValue<std::string> text("old", AllowedMethods::R);
    ActionValue action(text);
    ActionTree tree(action);
    EXPECT_EQ(tree.run(CREATE, "\"new\""), result::NOT_ALLOWED);
    EXPECT_EQ(stored(text), "old");
}

TEST(ActionValueTest, TheTargetTakesItsPermissionsThroughTheAction) {
    StaticAtomicValue<std::string> text("old", RU);
    ActionValue action(text);
    ActionTree tree(action, "go", AllowedMethods::C | AllowedMethods::B);
    EXPECT_EQ(tree.run(CREATE, "\"new\""), result::FORBIDDEN);
    EXPECT_EQ(stored(text), "old");
}

TEST(ActionValueTest, ReadUpdateAndDeleteAreRefusedWithTwo) {
    StaticAtomicValue<std::string> text("old", RU);
    ActionValue action(text);
    ActionTree tree(action);
    EXPECT_EQ(tree.run(READ), result::NOT_ALLOWED);
    EXPECT_EQ(tree.run(UPDATE, "\"new\""), result::NOT_ALLOWED);
    EXPECT_EQ(tree.run(DELETE), result::NOT_ALLOWED);
    EXPECT_EQ(stored(text), "old");
}

// ---- ApiAction ----------------------------------------------------------------------------

TEST(ApiActionTest, TheFunctionReceivesTheInputAndWritesTheAnswer) {
    ApiAction action([](const SerializationInfo& in, SerializationInfo& out) {
        int x = 0;
        in.getMember("x", x);
        out.addMember("double").setValue(2 * x);
    });
    ActionTree tree(action);
    EXPECT_EQ(tree.run(CREATE, "{\"x\":2}"), result::DONE);
    EXPECT_EQ(tree.answer, "{\"double\":4}");
}

TEST(ApiActionTest, TheContextFunctionReceivesTheRequestsContext) {
    Context* seen = nullptr;
    std::string uri;
    std::string received;
    ApiAction action([&](Context& ctx, const SerializationInfo& in, SerializationInfo&) {
        seen = &ctx;
        uri = static_cast<std::string>(ctx.currentUri());
        received = formatJson(in);
    });
    ActionTree tree(action, "run");
    EXPECT_EQ(tree.run(CREATE, "[1]"), result::DONE);
    EXPECT_EQ(seen, &tree.context());
    EXPECT_EQ(uri, "/a/run");
    EXPECT_EQ(received, "[1]");
}

TEST(ApiActionTest, ReturnsZeroWhateverTheFunctionDoes) {
    int calls = 0;
    ApiAction action([&](const SerializationInfo&, SerializationInfo& out) {
        ++calls;
        out.setValue("partial");
    });
    ActionTree tree(action);
    EXPECT_EQ(tree.run(CREATE), result::DONE);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(tree.answer, "\"partial\"");
}

TEST(ApiActionTest, AnEmptyFunctionReturnsZeroAndWritesNothing) {
    ApiAction action{ApiAction::Function()};
    ActionTree tree(action);
    EXPECT_EQ(tree.run(CREATE, "{\"x\":1}"), result::DONE);
    EXPECT_EQ(tree.answer, "null");
}

TEST(ApiActionTest, AnEmptyContextFunctionReturnsZeroAndWritesNothing) {
    ApiAction action{ApiAction::ContextFunction()};
    ActionTree tree(action);
    EXPECT_EQ(tree.run(CREATE, "{\"x\":1}"), result::DONE);
    EXPECT_EQ(tree.answer, "null");
}

TEST(ApiActionTest, AnExceptionOfTheFunctionPasses) {
    ApiAction action([](const SerializationInfo&, SerializationInfo&) {
        throw std::runtime_error("device busy");
    });
    ActionTree tree(action);
    EXPECT_THROW(tree.run(CREATE), std::runtime_error);
}

TEST(ApiActionTest, ReadUpdateAndDeleteAreRefusedWithTwo) {
    int calls = 0;
    ApiAction action([&](const SerializationInfo&, SerializationInfo&) { ++calls; });
    ActionTree tree(action);
    EXPECT_EQ(tree.run(READ), result::NOT_ALLOWED);
    EXPECT_EQ(tree.run(UPDATE, "1"), result::NOT_ALLOWED);
    EXPECT_EQ(tree.run(DELETE), result::NOT_ALLOWED);
    EXPECT_EQ(calls, 0);
}

// ---- Through the JSON engine --------------------------------------------------------------

// A data model holding three actions below "/a":
//   /a/answer  an ApiAction answering {"double": 2x} for a body {"x": x}
//   /a/apply   an ActionValue forwarding its body to `text`, a string of at most 3 bytes
//   /a/reboot  an ActionStub returning 7
// Its exception handler turns a dme::Exception into status 10 and an error document.
class ActionEngineTest : public testing::Test {
  protected:
    ActionEngineTest() {
        model.registerExceptionHandler(
            ExceptionHandlers::Entry(typeid(Exception), test::writeErrorDocument));
    }

    int execute(Method method, const std::string& uri, const std::string& body = "") {
        return engine.execute(method, uri, Arguments(), body, answer, false);
    }

    void doubleX(const SerializationInfo& in, SerializationInfo& out) {
        ++answers;
        int x = 0;
        in.getMember("x", x);
        out.addMember("double").setValue(2 * x);
    }

    int answers = 0;
    StaticAtomicValue<std::string> text{"", RU, 0, 3};
    ActionStub* reboot = new ActionStub(7);
    Structure root{
        {new Entry(
            "a",
            new Structure({new Entry("answer", new ApiAction([this](const SerializationInfo& in,
                                                                    SerializationInfo& out) {
                                         doubleX(in, out);
                                     })),
                           new Entry("apply", new ActionValue(text)), new Entry("reboot", reboot)},
                          AllowedMethods(0x1F), false))},
        AllowedMethods(0x1F),
        false};
    DataModel model{root, test::testLexicon(), AllowedMethods(0x1F)};
    JsonDataModelEngine engine{model, "actions"};
    std::string answer;
};

TEST_F(ActionEngineTest, ACreateRunsTheApiActionAndAnswersItsDocument) {
    EXPECT_EQ(execute(CREATE, "/a/answer", "{\"x\":21}"), result::DONE);
    EXPECT_EQ(answer, "{\"double\":42}");
    EXPECT_EQ(answers, 1);
}

TEST_F(ActionEngineTest, ACreateOfTheActionValueStoresAShortEnoughText) {
    EXPECT_EQ(execute(CREATE, "/a/apply", "\"abc\""), result::DONE);
    EXPECT_EQ(answer, "null");
    EXPECT_EQ(stored(text), "abc");
}

TEST_F(ActionEngineTest, ACreateOfTheActionValueWithATooLongTextGivesTheErrorDocument) {
    EXPECT_EQ(execute(CREATE, "/a/apply", "\"abcd\""), test::REJECTED);
    EXPECT_EQ(answer, "{\"error\":\"String too long\",\"details\":[\"abcd\",\"3\"]}");
    EXPECT_EQ(stored(text), "");
}

TEST_F(ActionEngineTest, ACreateOfTheActionValueWithANumberGivesTheInvalidTypeDocument) {
    EXPECT_EQ(execute(CREATE, "/a/apply", "12"), test::REJECTED);
    EXPECT_EQ(answer, "{\"error\":\"Invalid type\",\"details\":[\"apply\",\"string\"]}");
    EXPECT_EQ(stored(text), "");
}

TEST_F(ActionEngineTest, ACreateOfTheStubAnswersItsStatus) {
    EXPECT_EQ(execute(CREATE, "/a/reboot", "{}"), dme::result::UNKNOWN_METHOD);
    EXPECT_EQ(answer, "null");
    EXPECT_EQ(reboot->message(), "Executed on path '/a/reboot'");
}

TEST_F(ActionEngineTest, ReadUpdateAndDeleteOfEveryActionGiveTwo) {
    for (const char* uri : {"/a/answer", "/a/apply", "/a/reboot"}) {
        EXPECT_EQ(execute(READ, uri), result::NOT_ALLOWED) << uri;
        EXPECT_EQ(execute(UPDATE, uri, "\"abc\""), result::NOT_ALLOWED) << uri;
        EXPECT_EQ(execute(DELETE, uri), result::NOT_ALLOWED) << uri;
    }
    EXPECT_EQ(answers, 0);
    EXPECT_EQ(stored(text), "");
    EXPECT_EQ(reboot->message(), "");
}

TEST_F(ActionEngineTest, ACreateBelowAnActionGivesTwo) {
    EXPECT_EQ(execute(CREATE, "/a/reboot/now"), result::NOT_ALLOWED);
    EXPECT_EQ(reboot->message(), "");
}

TEST_F(ActionEngineTest, AReadOfTheParentLeavesTheActionsOut) {
    EXPECT_EQ(execute(READ, "/a"), result::DONE);
    EXPECT_EQ(answer, "{\"href\":\"/a\"}");
}

TEST_F(ActionEngineTest, TheSchemaOfAnActionIsReadOnly) {
    EXPECT_EQ(execute(SCHEMA, "/a/reboot"), result::DONE);
    EXPECT_EQ(answer, "{\"type\":\"unknown\",\"readonly\":true}");
}

}  // namespace
}  // namespace dme
