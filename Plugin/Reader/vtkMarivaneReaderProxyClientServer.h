#ifndef PLUGIN_READER_VTKMARIVANEREADERPROXYCLIENTSERVER_H
#define PLUGIN_READER_VTKMARIVANEREADERPROXYCLIENTSERVER_H

/* vtkMarivaneReaderProxyClientServer.h: the entry points by which a client-server interpreter comes to know
 * vtkMarivaneReaderProxy. Their names are the library's contract with the application. */

#include "vtkABI.h"

class vtkClientServerInterpreter;
class vtkClientServerStream;
class vtkObjectBase;

extern "C" {

/* Registers the proxy class with the interpreter; what a plugin gives as its initialisation callback. */
VTK_ABI_EXPORT void vtkMarivaneReaderCS_Initialize(vtkClientServerInterpreter *interpreter);

/* The initialisers of the module and of the inner reader, which no client calls by name: they do nothing. */
VTK_ABI_EXPORT void vtkMarivaneReaderModule_Init(vtkClientServerInterpreter *interpreter);
VTK_ABI_EXPORT void vtkMarivaneReader_Init(vtkClientServerInterpreter *interpreter);

/* Registers the maker and the command function of "vtkMarivaneReaderProxy", unless this was the last interpreter. */
VTK_ABI_EXPORT void vtkMarivaneReaderProxy_Init(vtkClientServerInterpreter *interpreter);

/* Calls `method` of `object` with the arguments that stand in the message behind object and method name. Returns 1
   if the call was made, with its reply, if it has one, in `result`; 0 with an error message in `result`. */
VTK_ABI_EXPORT int vtkMarivaneReaderProxyCommand(vtkClientServerInterpreter *interpreter, vtkObjectBase *object,
                                                 const char *method, const vtkClientServerStream &message,
                                                 vtkClientServerStream &result, void *context);
}

#endif
