"""The NDK-backend generator behind aidl_ndk.py.

parser.py reads one .aidl file into declarations (model.py), model.Package resolves the package's
type references and checks that every construct is one the emitters understand, and the emitters
write C++: records.py the parcelables and enums, interfaces.py the interfaces and their Bn bases,
on the shared vocabulary of cpp.py.
"""
