/* testCommand.cpp: the methods that a client-server interpreter can call. */

#include "test/plugin/pluginTestUtil.h"

#include "Plugin/Reader/vtkMarivaneReaderProxyClientServer.h"

#include "vtkCallbackCommand.h"
#include "vtkClientServerInterpreter.h"
#include "vtkClientServerStream.h"
#include "vtkDoubleArray.h"

typedef vtkClientServerStream Stream;

/* A proxy, an interpreter that may know a superclass, and one call at a time. */
struct Client {
    vtkNew<vtkClientServerInterpreter> interpreter;
    vtkNew<vtkMarivaneReaderProxy>     proxy;
    Stream                             result;

    template <class... Args> int call(const char *method, Args... args)
    {
        return callOn(proxy, method, args...);
    }
    template <class... Args> int callOn(vtkObjectBase *object, const char *method, Args... args)
    {
        Stream message;
        message << Stream::Invoke << object << method;
        (void) std::initializer_list<int>{ 0, (message << args, 0)... };
        message << Stream::End;
        result.Reset();
        return vtkMarivaneReaderProxyCommand(interpreter, object, method, message, result, nullptr);
    }
    template <class T> T value()
    {
        T value = T();
        EXPECT_EQ(result.GetNumberOfMessages(), 1);
        EXPECT_EQ(result.GetCommand(0), Stream::Reply);
        EXPECT_TRUE(result.GetArgument(0, 0, &value));
        return value;
    }
    vtkObjectBase *object() { return value<vtkObjectBase *>(); }
    std::string text() { const char *t = value<const char *>(); return t ? t : "(null)"; }
    std::string error()
    {
        const char *t = nullptr;
        EXPECT_EQ(result.GetCommand(0), Stream::Error);
        EXPECT_TRUE(result.GetArgument(0, 0, &t));
        return t ? t : "";
    }
    bool silent() { return result.GetNumberOfMessages() == 0; }
};

static std::string notFound(const char *method)
{
    return std::string("Object type: vtkMarivaneReaderProxy, could not find requested method: \"") + method
        + "\"\nor the method was called with incorrect arguments.\n";
}

TEST(command, makesAndClassifiesObjects)
{
    Client c;
    for (const char *method : { "New", "NewInstance" }) {
        ASSERT_EQ(c.call(method), 1) << method;
        vtkObjectBase *made = c.object();
        ASSERT_NE(made, nullptr);
        EXPECT_TRUE(made->IsA("vtkMarivaneReaderProxy"));
        EXPECT_NE(made, c.proxy.GetPointer());
        made->Delete();
    }
    EXPECT_EQ(c.call("IsTypeOf", "vtkAlgorithm"), 1);
    EXPECT_EQ(c.value<int>(), 1);
    EXPECT_EQ(c.call("IsTypeOf", "vtkPoints"), 1);
    EXPECT_EQ(c.value<int>(), 0);
    EXPECT_EQ(c.call("IsA", "vtkMultiBlockDataSetAlgorithm"), 1);
    EXPECT_EQ(c.value<int>(), 1);
    EXPECT_EQ(c.call("IsA", ""), 1);
    EXPECT_EQ(c.value<int>(), 0);
    EXPECT_EQ(c.call("SafeDownCast", static_cast<vtkObjectBase *>(c.proxy.GetPointer())), 1);
    EXPECT_EQ(c.object(), c.proxy.GetPointer());
    vtkNew<vtkPoints> points;
    EXPECT_EQ(c.call("SafeDownCast", static_cast<vtkObjectBase *>(points.GetPointer())), 1);
    EXPECT_EQ(c.object(), nullptr);
}

TEST(command, aResultWithAnOwnerKeepsTheOnlyReference)
{
    Client         c;
    vtkObject     *made = nullptr;
    bool           gone = false;
    vtkNew<vtkCallbackCommand> deleted;
    deleted->SetClientData(&gone);
    deleted->SetCallback([](vtkObject *, unsigned long, void *flag, void *) { *static_cast<bool *>(flag) = true; });
    {
        Stream owned(c.interpreter), message;
        message << Stream::Invoke << static_cast<vtkObjectBase *>(c.proxy.GetPointer()) << "New" << Stream::End;
        EXPECT_EQ(vtkMarivaneReaderProxyCommand(c.interpreter, c.proxy, "New", message, owned, nullptr), 1);
        vtkObjectBase *object = nullptr;
        ASSERT_TRUE(owned.GetArgument(0, 0, &object));
        made = vtkObject::SafeDownCast(object);
        made->AddObserver(vtkCommand::DeleteEvent, deleted);
    }
    EXPECT_TRUE(gone);
}

TEST(command, countsGenerationsAs64BitIntegers)
{
    Client c;
    for (const char *method : { "GetNumberOfGenerationsFromBaseType", "GetNumberOfGenerationsFromBase" }) {
        EXPECT_EQ(c.call(method, "vtkMultiBlockDataSetAlgorithm"), 1);
        EXPECT_EQ(c.result.GetArgumentType(0, 0), Stream::int64_value) << method;
        EXPECT_EQ(c.value<vtkTypeInt64>(), 1);
        EXPECT_EQ(c.call(method, "vtkMarivaneReaderProxy"), 1);
        EXPECT_EQ(c.value<vtkTypeInt64>(), 0);
    }
}

TEST(command, setsAndAsksTheFileName)
{
    Client c;
    EXPECT_EQ(c.call("GetFileName"), 1);
    EXPECT_EQ(c.text(), "(null)");
    EXPECT_EQ(c.call("SetFileName", "d/case.12.Log"), 1);
    EXPECT_TRUE(c.silent());
    EXPECT_EQ(c.call("GetFileName"), 1);
    EXPECT_EQ(c.text(), "d/case.12.Log");

    testWrite("there", "");
    EXPECT_EQ(c.call("CanReadFile", "there"), 1);
    EXPECT_EQ(c.value<int>(), 1);
    EXPECT_EQ(printed([&] { EXPECT_EQ(c.call("CanReadFile", "absent"), 1); }), "Failed in canreadfile.\n");
    EXPECT_EQ(c.value<int>(), 0);
}

TEST(command, setsAndAsksTheSelection)
{
    Client c;
    vtkDataArraySelection *selection = c.proxy->GetPointDataArraySelection();
    selection->AddArray("pressure");

    EXPECT_EQ(c.call("GetPointDataArraySelection"), 1);
    EXPECT_EQ(c.object(), selection);
    EXPECT_EQ(c.call("GetNumberOfPointArrays"), 1);
    EXPECT_EQ(c.value<int>(), 1);
    EXPECT_EQ(c.call("GetPointArrayName", 0), 1);
    EXPECT_EQ(c.text(), "pressure");
    EXPECT_EQ(c.call("GetPointArrayStatus", "pressure"), 1);
    EXPECT_EQ(c.value<int>(), 1);

    vtkMTimeType before = c.proxy->GetMTime();
    EXPECT_EQ(c.call("SetPointArrayStatus", "pressure", 0), 1);
    EXPECT_TRUE(c.silent());
    EXPECT_GT(c.proxy->GetMTime(), before);
    EXPECT_EQ(c.call("GetPointArrayStatus", "pressure"), 1);
    EXPECT_EQ(c.value<int>(), 0);
    EXPECT_EQ(c.call("SetPointArrayStatus", "pressure", 2), 1);
    EXPECT_EQ(c.proxy->GetPointArrayStatus("pressure"), 1);
}

TEST(command, setsAndAsksTimeSteps)
{
    Client c;
    EXPECT_EQ(c.call("GetNumberOfTimeSteps"), 1);
    EXPECT_EQ(c.value<int>(), 0);
    EXPECT_EQ(c.call("SetTimeStep", 3), 1);
    EXPECT_TRUE(c.silent());
    EXPECT_EQ(c.call("GetTimeStep"), 1);
    EXPECT_EQ(c.value<int>(), 3);

    int range[2] = { -1, -1 };
    EXPECT_EQ(c.call("GetTimeStepRange"), 1);
    EXPECT_TRUE(c.result.GetArgument(0, 0, range, 2));
    EXPECT_EQ(range[0], 0);
    EXPECT_EQ(range[1], 0);
    EXPECT_EQ(c.call("SetTimeStepRange", 2, 5), 1);
    EXPECT_TRUE(c.silent());
    EXPECT_EQ(c.proxy->GetTimeStepRange()[0], 2);
    EXPECT_EQ(c.proxy->GetTimeStepRange()[1], 5);
    const int both[2] = { 7, 9 };
    EXPECT_EQ(c.call("SetTimeStepRange", Stream::InsertArray(both, 2)), 1);
    EXPECT_EQ(c.call("GetTimeStepRange"), 1);
    EXPECT_TRUE(c.result.GetArgument(0, 0, range, 2));
    EXPECT_EQ(range[0], 7);
    EXPECT_EQ(range[1], 9);
}

TEST(command, asksGroupsAndCentroids)
{
    tool::RunSpec spec;
    spec.form = tool::Form::ascii;
    tool::writeRun(spec);
    setOptions("verbose = 0\n");

    Client c;
    EXPECT_EQ(c.call("GetBlockCentroids"), 1);
    EXPECT_EQ(c.object(), nullptr);
    c.proxy->SetFileName("pipe.1.Log");
    c.proxy->UpdateInformation();
    EXPECT_EQ(c.call("GetDataGroupingString"), 1);
    EXPECT_EQ(c.text(), c.proxy->GetDataGroupingString());
    EXPECT_EQ(c.text().find("{\"ModelName\":\"pipe\",\"ELMs\":{"), 0u);
    EXPECT_EQ(c.call("GetBlockCentroids"), 1);
    EXPECT_EQ(c.object(), c.proxy->GetBlockCentroids());
    EXPECT_TRUE(c.object()->IsA("vtkDoubleArray"));
}

TEST(command, setLoadExtVariablesGivesNullAndLeavesTheReaderAsItIs)
{
    Client c;
    vtkMTimeType before = c.proxy->GetMTime();
    EXPECT_EQ(c.call("SetLoadExtVariables"), 1);
    EXPECT_EQ(c.text(), "(null)");
    EXPECT_EQ(c.call("SetLoadExtVariables", "1"), 0);
    EXPECT_EQ(c.error(), notFound("SetLoadExtVariables"));
    EXPECT_EQ(c.call("SetLoadExtVariables", 1), 0);
    EXPECT_EQ(c.proxy->GetMTime(), before);
}

/* Every method with one argument too many, and with one too few where it takes any. */
TEST(command, wrongArgumentCountsEndInTheNotFoundText)
{
    static const struct { const char *method; int nArgs; } methods[] = {
        { "New", 0 }, { "IsTypeOf", 1 }, { "IsA", 1 }, { "SafeDownCast", 1 }, { "NewInstance", 0 },
        { "GetNumberOfGenerationsFromBaseType", 1 }, { "GetNumberOfGenerationsFromBase", 1 }, { "SetFileName", 1 },
        { "GetFileName", 0 }, { "CanReadFile", 1 }, { "GetPointDataArraySelection", 0 },
        { "GetNumberOfPointArrays", 0 }, { "GetPointArrayName", 1 }, { "GetPointArrayStatus", 1 },
        { "SetPointArrayStatus", 2 }, { "GetNumberOfTimeSteps", 0 }, { "SetTimeStep", 1 }, { "GetTimeStep", 0 },
        { "GetTimeStepRange", 0 }, { "SetTimeStepRange", 2 }, { "GetDataGroupingString", 0 },
        { "SetLoadExtVariables", 0 }, { "GetBlockCentroids", 0 },
    };
    Client c;
    for (const auto &m : methods) {
        SCOPED_TRACE(m.method);
        const int wrong = m.nArgs == 2 ? c.call(m.method, 1, 2, 3) : m.nArgs == 1 ? c.call(m.method, 1, 2)
                                                                                : c.call(m.method, 1);
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(c.error(), notFound(m.method));
        if (m.nArgs == 0) continue;
        EXPECT_EQ(c.call(m.method), 0);
        EXPECT_EQ(c.error(), notFound(m.method));
        EXPECT_EQ(c.result.GetNumberOfArguments(0), 1);
    }
}

TEST(command, argumentsOfAWrongKindFallThroughTheTable)
{
    Client c;
    EXPECT_EQ(c.call("SetTimeStep", "three"), 0);
    EXPECT_EQ(c.error(), notFound("SetTimeStep"));
    EXPECT_EQ(c.call("SetFileName", 1), 0);
    EXPECT_EQ(c.call("SetTimeStepRange", "x"), 0);
    EXPECT_EQ(c.call("SetPointArrayStatus", "pressure", "on"), 0);
    EXPECT_EQ(c.call("SafeDownCast", 5), 0);
    const int three[3] = { 1, 2, 3 };
    EXPECT_EQ(c.call("SetTimeStepRange", Stream::InsertArray(three, 3)), 0);
    EXPECT_EQ(c.proxy->GetTimeStepRange()[1], 0);
}

TEST(command, emptyTextsAreNoTrouble)
{
    Client c;
    EXPECT_EQ(c.call("IsTypeOf", static_cast<const char *>(nullptr)), 1);
    EXPECT_EQ(c.value<int>(), 0);
    EXPECT_EQ(c.call("SetFileName", "x"), 1);
    EXPECT_EQ(c.call("SetFileName", static_cast<const char *>(nullptr)), 1);
    EXPECT_EQ(c.proxy->GetFileName(), nullptr);
    EXPECT_EQ(c.call("GetPointArrayStatus", static_cast<const char *>(nullptr)), 1);
    EXPECT_EQ(c.value<int>(), 0);
    EXPECT_EQ(c.call("SetPointArrayStatus", static_cast<const char *>(nullptr), 1), 1);
    EXPECT_EQ(c.call("GetNumberOfGenerationsFromBase", static_cast<const char *>(nullptr)), 1);
    EXPECT_EQ(printed([&] { c.call("CanReadFile", static_cast<const char *>(nullptr)); }), "Failed in canreadfile.\n");
}

TEST(command, refusesObjectsOfOtherClasses)
{
    Client            c;
    vtkNew<vtkPoints> points;
    EXPECT_EQ(c.callOn(points, "GetTimeStep"), 0);
    EXPECT_EQ(c.error(), "Cannot cast vtkPoints object to vtkMarivaneReaderProxy.  "
                         "This probably means the class specifies the incorrect superclass in vtkTypeMacro.");
    int zero = -1;
    EXPECT_EQ(c.result.GetNumberOfArguments(0), 2);
    EXPECT_TRUE(c.result.GetArgument(0, 1, &zero));
    EXPECT_EQ(zero, 0);
    EXPECT_EQ(c.callOn(nullptr, "GetTimeStep"), 0);
    EXPECT_NE(c.error().find(" object to vtkMarivaneReaderProxy.  "), std::string::npos);
}

/* What the superclass of a call's object was asked, and its answer. */
static int         superclassAnswer;
static std::string superclassAsked;
static int superclassCommand(vtkClientServerInterpreter *, vtkObjectBase *, const char *method, const Stream &,
                             Stream &result, void *)
{
    superclassAsked = method;
    result.Reset();
    if (superclassAnswer) result << Stream::Reply << 42 << Stream::End;
    else                  result << Stream::Error << "better said" << 1 << Stream::End;
    return superclassAnswer;
}

TEST(command, unknownMethodsGoToTheSuperclass)
{
    Client c;
    c.interpreter->AddCommandFunction("vtkMultiBlockDataSetAlgorithm", superclassCommand);
    superclassAnswer = 1;
    EXPECT_EQ(c.call("GetNumberOfOutputPorts"), 1);
    EXPECT_EQ(superclassAsked, "GetNumberOfOutputPorts");
    EXPECT_EQ(c.value<int>(), 42);

    superclassAnswer = 0;                                 /* its explanation stands */
    EXPECT_EQ(c.call("NoSuchMethod"), 0);
    EXPECT_EQ(c.error(), "better said");
    EXPECT_EQ(c.result.GetNumberOfArguments(0), 2);

    superclassAsked.clear();                              /* our own methods do not come there */
    EXPECT_EQ(c.call("GetTimeStep"), 1);
    EXPECT_EQ(superclassAsked, "");
}

TEST(command, aRepeatedInitRegistersOnce)
{
    vtkNew<vtkClientServerInterpreter> interpreter;
    EXPECT_FALSE(interpreter->HasCommandFunction("vtkMarivaneReaderProxy"));
    vtkMarivaneReaderProxy_Init(interpreter);
    ASSERT_TRUE(interpreter->HasCommandFunction("vtkMarivaneReaderProxy"));

    /* An interpreter either complains of a function for a name that it has, or takes the new one. So another function
       is offered: where it was taken, it must still be there after the repetitions, and nobody complains of those. */
    const bool taken = errorsOf(interpreter, [&] {
        interpreter->AddCommandFunction("vtkMarivaneReaderProxy", superclassCommand);
    }).empty();
    EXPECT_EQ(errorsOf(interpreter, [&] {
        vtkMarivaneReaderProxy_Init(interpreter);
        vtkMarivaneReaderCS_Initialize(interpreter);
        vtkMarivaneReader_Init(interpreter);
        vtkMarivaneReaderModule_Init(interpreter);
    }).size(), 0u);
    vtkNew<vtkMarivaneReaderProxy> proxy;
    Stream                         message, result;
    superclassAnswer = 1;
    superclassAsked.clear();
    message << Stream::Invoke << static_cast<vtkObjectBase *>(proxy.GetPointer()) << "GetTimeStep" << Stream::End;
    EXPECT_EQ(interpreter->CallCommandFunction("vtkMarivaneReaderProxy", proxy, "GetTimeStep", message, result), 1);
    EXPECT_EQ(superclassAsked, taken ? "GetTimeStep" : "");

    vtkNew<vtkClientServerInterpreter> other;             /* another interpreter is a new one */
    vtkMarivaneReaderCS_Initialize(other);
    vtkObjectBase *made = other->NewInstance("vtkMarivaneReaderProxy");
    ASSERT_NE(made, nullptr);
    EXPECT_TRUE(made->IsA("vtkMarivaneReaderProxy"));
    made->Delete();
}
