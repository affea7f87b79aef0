/* vtkMarivaneReaderProxyClientServer.cxx: the methods of vtkMarivaneReaderProxy that a client can call by name.
 *
 * A client knows the proxy only by messages: object, method name, arguments. The table below has one row per method
 * and number of arguments; a row's function takes its arguments out of the message, calls the method and writes the
 * reply. A row that cannot take its arguments out answers false, and the search goes on: one name may stand twice
 * with different arguments. What no row takes is offered to the superclass. */

#include "Plugin/Reader/vtkMarivaneReaderProxyClientServer.h"

#include "Plugin/Reader/vtkMarivaneReaderProxy.h"

#include "vtkClientServerInterpreter.h"
#include "vtkClientServerStream.h"
#include "vtkDataArraySelection.h"
#include "vtkDoubleArray.h"

#include <cstring>
#include <sstream>
#include <string>

namespace
{
const int FIRST = 2;              /* arguments 0 and 1 of a message are the object and the method's name */

struct Call {
    vtkMarivaneReaderProxy      *proxy;
    const vtkClientServerStream &message;
    vtkClientServerStream       &result;

    bool take(int i, int *value) const { return message.GetArgument(0, FIRST + i, value) != 0; }
    bool take(int i, int *values, vtkTypeUInt32 n) const { return message.GetArgument(0, FIRST + i, values, n) != 0; }
    bool take(int i, const char **text) const { return message.GetArgument(0, FIRST + i, text) != 0; }
    bool take(int i, vtkObjectBase **object) const
    {
        return vtkClientServerStreamGetArgumentObject(message, 0, FIRST + i, object, "vtkObjectBase") != 0;
    }

    template <class T> bool reply(T value) const
    {
        result.Reset();
        result << vtkClientServerStream::Reply << value << vtkClientServerStream::End;
        return true;
    }

    bool replyObject(vtkObjectBase *object) const { return reply<vtkObjectBase *>(object); }

    /* A result that has an owner, as an interpreter's has, keeps a reference of its own, and that from making the
       object is given back. A result without owner keeps none: then the reference goes on with the pointer. */
    bool replyNew(vtkObjectBase *object) const
    {
        const int references = object->GetReferenceCount();
        replyObject(object);
        if (object->GetReferenceCount() > references) object->Delete();
        return true;
    }
};

/* An empty text in a message comes out as null; type names are compared without a test for that. */
const char *typeName(const char *text) { return text ? text : ""; }

/* The shapes that several rows share: one argument or none, with a reply. */
template <class F> bool withText(const Call &c, F f)
{
    const char *text = nullptr;
    return c.take(0, &text) && f(text);
}

const struct Row {
    const char *method;
    int         nArgs;
    bool      (*call)(const Call &c);
} rows[] = {
    { "New", 0, [](const Call &c) { return c.replyNew(vtkMarivaneReaderProxy::New()); } },
    { "IsTypeOf", 1, [](const Call &c) {
        return withText(c, [&](const char *t) { return c.reply<int>(vtkMarivaneReaderProxy::IsTypeOf(typeName(t))); });
    } },
    { "IsA", 1, [](const Call &c) {
        return withText(c, [&](const char *t) { return c.reply<int>(c.proxy->IsA(typeName(t))); });
    } },
    { "SafeDownCast", 1, [](const Call &c) {
        vtkObjectBase *object = nullptr;
        return c.take(0, &object) && c.replyObject(vtkMarivaneReaderProxy::SafeDownCast(object));
    } },
    { "NewInstance", 0, [](const Call &c) { return c.replyNew(c.proxy->NewInstance()); } },
    { "GetNumberOfGenerationsFromBaseType", 1, [](const Call &c) {
        return withText(c, [&](const char *t) {
            return c.reply<vtkTypeInt64>(vtkMarivaneReaderProxy::GetNumberOfGenerationsFromBaseType(typeName(t)));
        });
    } },
    { "GetNumberOfGenerationsFromBase", 1, [](const Call &c) {
        return withText(c, [&](const char *t) {
            return c.reply<vtkTypeInt64>(c.proxy->GetNumberOfGenerationsFromBase(typeName(t)));
        });
    } },
    { "SetFileName", 1, [](const Call &c) {
        return withText(c, [&](const char *t) { c.proxy->SetFileName(t); return true; });
    } },
    { "GetFileName", 0, [](const Call &c) { return c.reply<const char *>(c.proxy->GetFileName()); } },
    { "CanReadFile", 1, [](const Call &c) {
        return withText(c, [&](const char *t) { return c.reply<int>(c.proxy->CanReadFile(t)); });
    } },
    { "GetPointDataArraySelection", 0, [](const Call &c) {
        return c.replyObject(c.proxy->GetPointDataArraySelection());
    } },
    { "GetNumberOfPointArrays", 0, [](const Call &c) { return c.reply<int>(c.proxy->GetNumberOfPointArrays()); } },
    { "GetPointArrayName", 1, [](const Call &c) {
        int index = 0;
        return c.take(0, &index) && c.reply<const char *>(c.proxy->GetPointArrayName(index));
    } },
    { "GetPointArrayStatus", 1, [](const Call &c) {
        return withText(c, [&](const char *t) { return c.reply<int>(c.proxy->GetPointArrayStatus(t)); });
    } },
    { "SetPointArrayStatus", 2, [](const Call &c) {
        const char *name = nullptr;
        int         status = 0;
        if (!c.take(0, &name) || !c.take(1, &status)) return false;
        c.proxy->SetPointArrayStatus(name, status);
        return true;
    } },
    { "GetNumberOfTimeSteps", 0, [](const Call &c) { return c.reply<int>(c.proxy->GetNumberOfTimeSteps()); } },
    { "SetTimeStep", 1, [](const Call &c) {
        int step = 0;
        if (!c.take(0, &step)) return false;
        c.proxy->SetTimeStep(step);
        return true;
    } },
    { "GetTimeStep", 0, [](const Call &c) { return c.reply<int>(c.proxy->GetTimeStep()); } },
    { "GetTimeStepRange", 0, [](const Call &c) {
        return c.reply(vtkClientServerStream::InsertArray(c.proxy->GetTimeStepRange(), 2));
    } },
    { "SetTimeStepRange", 2, [](const Call &c) {
        int low = 0, high = 0;
        if (!c.take(0, &low) || !c.take(1, &high)) return false;
        c.proxy->SetTimeStepRange(low, high);
        return true;
    } },
    { "SetTimeStepRange", 1, [](const Call &c) {
        int range[2] = { 0, 0 };
        if (!c.take(0, range, 2)) return false;
        c.proxy->SetTimeStepRange(range[0], range[1]);
        return true;
    } },
    { "GetDataGroupingString", 0, [](const Call &c) {
        return c.reply<const char *>(c.proxy->GetDataGroupingString());
    } },
    /* the name of a property that takes nothing and sets nothing */
    { "SetLoadExtVariables", 0, [](const Call &c) { return c.reply<const char *>(nullptr); } },
    { "GetBlockCentroids", 0, [](const Call &c) { return c.replyObject(c.proxy->GetBlockCentroids()); } },
};

vtkObjectBase *newProxy(void *) { return vtkMarivaneReaderProxy::New(); }
}

int vtkMarivaneReaderProxyCommand(vtkClientServerInterpreter *interpreter, vtkObjectBase *object, const char *method,
                                  const vtkClientServerStream &message, vtkClientServerStream &result, void *)
{
    using Stream = vtkClientServerStream;

    if (!object || !object->IsA("vtkMarivaneReaderProxy")) {
        const std::string text = std::string("Cannot cast ") + (object ? object->GetClassName() : "(null)")
            + " object to vtkMarivaneReaderProxy.  "
            + "This probably means the class specifies the incorrect superclass in vtkTypeMacro.";
        result.Reset();
        result << Stream::Error << text.c_str() << 0 << Stream::End;
        return 0;
    }
    if (!method) method = "";

    const Call call = { static_cast<vtkMarivaneReaderProxy *>(object), message, result };
    for (const Row &row : rows)
        if (!strcmp(row.method, method) && message.GetNumberOfArguments(0) == FIRST + row.nArgs && row.call(call))
            return 1;

    const char *superclass = "vtkMultiBlockDataSetAlgorithm";
    if (interpreter && interpreter->HasCommandFunction(superclass)
        && interpreter->CallCommandFunction(superclass, object, method, message, result))
        return 1;

    /* the superclass may have left a better explanation than ours */
    if (result.GetNumberOfMessages() > 0 && result.GetCommand(0) == Stream::Error && result.GetNumberOfArguments(0) > 1)
        return 0;

    const std::string text = std::string("Object type: vtkMarivaneReaderProxy, could not find requested method: \"")
        + method + "\"\nor the method was called with incorrect arguments.\n";
    result.Reset();
    result << Stream::Error << text.c_str() << Stream::End;
    return 0;
}

void vtkMarivaneReaderModule_Init(vtkClientServerInterpreter *) {}
void vtkMarivaneReader_Init(vtkClientServerInterpreter *) {}

void vtkMarivaneReaderProxy_Init(vtkClientServerInterpreter *interpreter)
{
    static vtkClientServerInterpreter *last = nullptr;
    if (interpreter == last) return;
    last = interpreter;
    interpreter->AddNewInstanceFunction("vtkMarivaneReaderProxy", newProxy);
    interpreter->AddCommandFunction("vtkMarivaneReaderProxy", vtkMarivaneReaderProxyCommand);
}

void vtkMarivaneReaderCS_Initialize(vtkClientServerInterpreter *interpreter)
{
    vtkMarivaneReaderModule_Init(interpreter);
    vtkMarivaneReaderProxy_Init(interpreter);
    vtkMarivaneReaderModule_Init(interpreter);
}
