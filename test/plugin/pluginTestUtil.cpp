#include "test/plugin/pluginTestUtil.h"

#include "vtkCallbackCommand.h"
#include "vtkCellArray.h"
#include "vtkCellType.h"
#include "vtkIdList.h"
#include "vtkObjectFactory.h"
#include "vtkVersionMacros.h"

#include <cstdlib>
#include <map>
#include <sstream>

vtkStandardNewMacro(TestReader);
vtkStandardNewMacro(TestProxy);

void TestProxy::SetReader(vtkMarivaneReaderBase *reader)
{
    if (reader) reader->Register(this);
    if (this->Reader) this->Reader->UnRegister(this);
    this->Reader = reader;
}

/* Under a sanitizer: a reader never closes its database, and a failure does not unwind, so that both leave memory. */
extern "C" __attribute__((visibility("default"))) const char *__asan_default_options() { return "detect_leaks=0"; }

void setOptions(const std::string &lines)
{
    testWrite("options.cnf", lines);
    setenv("QUENTA_CNF_FILES", "options.cnf", 1);
}

std::string printed(const std::function<void()> &f)
{
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
}

static void keepError(vtkObject *, unsigned long, void *errors, void *text)
{
    static_cast<std::vector<std::string> *>(errors)->push_back(static_cast<const char *>(text));
}

std::vector<std::string> errorsOf(vtkObject *object, const std::function<void()> &f)
{
    std::vector<std::string>   errors;
    vtkNew<vtkCallbackCommand> command;
    command->SetCallback(keepError);
    command->SetClientData(&errors);
    const unsigned long tag = object->AddObserver(vtkCommand::ErrorEvent, command);
    f();
    object->RemoveObserver(tag);
    return errors;
}

vtkMultiBlockDataSet *update(vtkMarivaneReaderProxy *proxy)
{
    proxy->Update();
    return vtkMultiBlockDataSet::SafeDownCast(proxy->GetOutputDataObject(0));
}

vtkMultiBlockDataSet *update(vtkMarivaneReaderProxy *proxy, double time)
{
    proxy->UpdateInformation();
    proxy->UpdateTimeStep(time);
    return vtkMultiBlockDataSet::SafeDownCast(proxy->GetOutputDataObject(0));
}

vtkUnstructuredGrid *gridOf(vtkMultiBlockDataSet *output, int block)
{
    return vtkUnstructuredGrid::SafeDownCast(output->GetBlock(block));
}

vtkFloatArray *arrayOf(vtkMultiBlockDataSet *output, int block, const std::string &name)
{
    return vtkFloatArray::SafeDownCast(gridOf(output, block)->GetPointData()->GetArray(name.c_str()));
}

/* A sentence that the first difference ends. */
struct Difference {
    std::ostringstream text;
    template <class A, class B> bool is(const char *what, int block, int64_t at, const A &a, const B &b)
    {
        if (a == b) return false;
        text << "block " << block << ", " << what << " " << at << ": " << a << " instead of " << b;
        return true;
    }
};

/* What the pipeline shows of a type that VTK lacks: the byte 255, or a cell without a shape where filters crash on it. */
static int shownType(int cellType)
{
#if VTK_MAJOR_VERSION == 9 && VTK_MINOR_VERSION == 0
    if (cellType < 0) return VTK_EMPTY_CELL;
#endif
    return cellType & 255;
}

static bool cellsDiffer(Difference &d, const tool::RunModel &model, int block, vtkUnstructuredGrid *grid,
                        const std::vector<int> &nodes)
{
    const int  nSfss = int(model.sfss.size());
    const bool surface = block < nSfss;
    const std::vector<int> &cnn = surface ? model.sfss[block].cnn : model.vols[block - nSfss].cnn;
    const int nCellNodes = surface ? model.sfss[block].nSrfNodes : model.vols[block - nSfss].nen;
    const int nCells = int(cnn.size()) / nCellNodes;

    if (d.is("cells", block, 0, grid->GetNumberOfCells(), nCells)) return true;
    vtkNew<vtkIdList> ids;
    for (int c = 0; c < nCells; ++c) {
        if (d.is("type of cell", block, c, grid->GetCellType(c), shownType(model.cellType(block)))) return true;
        grid->GetCells()->GetCellAtId(c, ids);
        if (d.is("nodes of cell", block, c, ids->GetNumberOfIds(), nCellNodes)) return true;
        for (int i = 0; i < nCellNodes; ++i)
            if (d.is("node of cell", block, c, nodes[ids->GetId(i)], cnn[size_t(c) * nCellNodes + i])) return true;
    }
    return false;
}

static bool pointsDiffer(Difference &d, const tool::RunModel &model, int block, vtkUnstructuredGrid *grid,
                         const std::vector<int> &nodes, int step, bool moved)
{
    const int moving = model.varOf("mesh_displacement");
    if (d.is("points", block, 0, grid->GetNumberOfPoints(), int(nodes.size()))) return true;
    for (size_t i = 0; i < nodes.size(); ++i) {
        double xyz[3], by[3] = { 0, 0, 0 }, point[3];
        model.crd(nodes[i], xyz);
        if (moved) model.values(moving, nodes[i], step, by);
        grid->GetPoint(vtkIdType(i), point);
        for (int c = 0; c < 3; ++c)
            if (d.is("coordinate of point", block, int64_t(i), point[c], double(float(double(float(xyz[c])) + by[c]))))
                return true;
    }
    return false;
}

static bool arraysDiffer(Difference &d, const tool::RunModel &model, int block, vtkUnstructuredGrid *grid,
                         const std::vector<int> &nodes, int step)
{
    std::map<std::string, tool::ShownArray> shown;       /* of one name the later one is shown */
    for (const tool::ShownArray &a : model.shownArrays()) shown[a.name] = a;

    if (d.is("arrays", block, 0, grid->GetPointData()->GetNumberOfArrays(), int(shown.size()))) return true;
    for (const auto &named : shown) {
        const tool::ShownArray &a = named.second;
        vtkFloatArray *array = vtkFloatArray::SafeDownCast(grid->GetPointData()->GetArray(a.name.c_str()));
        if (d.is(("array " + a.name).c_str(), block, 0, array != nullptr, true)) return true;
        if (d.is("components", block, 0, array->GetNumberOfComponents(), a.nComps)) return true;
        if (d.is("values", block, 0, array->GetNumberOfTuples(), int(nodes.size()))) return true;
        for (size_t i = 0; i < nodes.size(); ++i)
            for (int c = 0; c < a.nComps; ++c)
                if (d.is(("value of " + a.name).c_str(), block, int64_t(i), array->GetTypedComponent(vtkIdType(i), c),
                         float(model.value(a.var, a.first + c, nodes[i], step))))
                    return true;
    }
    return false;
}

std::string differs(const tool::RunModel &model, vtkMultiBlockDataSet *output, int step, bool moved)
{
    Difference d;
    if (d.is("blocks", 0, 0, int(output->GetNumberOfBlocks()), model.nBlocks())) return d.text.str();
    for (int b = 0; b < model.nBlocks(); ++b) {
        vtkUnstructuredGrid   *grid = gridOf(output, b);
        const std::vector<int> nodes = model.blockNodes(b);
        if (d.is("grid", b, 0, grid != nullptr, true) || pointsDiffer(d, model, b, grid, nodes, step, moved)
            || cellsDiffer(d, model, b, grid, nodes) || arraysDiffer(d, model, b, grid, nodes, step))
            return d.text.str();
    }
    return "";
}
