"""File > Export > ZT2 Scene (.zt2): Blender as a host of the ZT2 exporter,
and File > Import > ZT2 Scene (.zt2) back.

The evaluated scene is written as a scene-description document into a work
folder of its own, and the exporter module runs on it in this process
(ztexport.export), so the file is byte for byte what zt2export writes for
that document. The import reads a file with ztexport.read and builds the
objects it describes (build.py).
"""

bl_info = {
    "name": "ZT2 Scene format",
    "author": "ZTExport",
    "version": (0, 1, 0),
    "blender": (3, 4, 0),
    "location": "File > Export > ZT2 Scene (.zt2), File > Import > ZT2 Scene (.zt2)",
    "description": "Export the scene as a ZT2.0 scene file through the ZTExport exporter, and import one",
    "category": "Import-Export",
}

import json
import os
import subprocess
import webbrowser

import bpy
from bpy_extras.io_utils import ExportHelper, ImportHelper

from . import build as _build
from . import gather as _gather
from . import options as _options


def write_document(document, folder):
    """Writes the scene description, its buffer and the packed images into
    `folder`; returns the scene description's path."""
    from ztexport import write_file as _write
    if document.buffer.size:
        _write(os.path.join(folder, _gather.BUFFER_NAME), document.buffer.bytes())
    for name, data in sorted(document.extra_files.items()):
        _write(os.path.join(folder, name), data)
    scene_path = os.path.join(folder, _gather.DOCUMENT_NAME)
    _write(scene_path, json.dumps(document.scene, indent=1))
    return scene_path


def export_scene(context, filepath, options, animation=True, save_options=False):
    """Export the scene of `context` to `filepath`; returns (ExportResult,
    warnings). save_options=True writes the options the export used into
    zt2export's ZTExport.cfg afterwards, as its --save-options does. Raises
    ztexport.ExportError or ValueError when the export cannot start."""
    import ztexport
    options = dict(options)
    document = _gather.gather(context, animation=animation, skinning=options.get("exportSkinning"))
    # Left to the host, skinning is on exactly when some mesh has a skin.
    options.setdefault("exportSkinning", document.skinning)
    # A folder of this run's own, removed with what it holds.
    with ztexport.work_directory() as folder:
        result = ztexport.export(write_document(document, folder), filepath, options=options,
                                 save_options=save_options)
    return result, document.warnings


def page_writer():
    """zt2view, beside the zt2export the package was built or installed with,
    else on the PATH; None without one."""
    import ztexport
    exporter = ztexport.default_exporter()
    folders = [os.path.dirname(exporter)] if exporter else []
    folders += os.environ.get("PATH", "").split(os.pathsep)
    for folder in folders:
        candidate = os.path.join(folder, "zt2view")
        if folder and os.path.isfile(candidate) and os.access(candidate, os.X_OK):
            return candidate
    return None


def write_preview(filepath):
    """The preview page of an exported file (zt2view, beside it as FILE.html);
    returns its path. Raises RuntimeError with zt2view's words when it fails."""
    viewer = page_writer()
    if viewer is None:
        raise RuntimeError("zt2view is not installed beside zt2export nor on the PATH: no preview")
    page = os.path.splitext(filepath)[0] + ".html"
    run = subprocess.run([viewer, filepath, "-o", page], capture_output=True, text=True)
    if run.returncode != 0:
        raise RuntimeError("zt2view failed (%d): %s" % (run.returncode, (run.stderr or run.stdout).strip()))
    return page


class ExportZT2(bpy.types.Operator, ExportHelper):
    """Export the scene as a ZT2.0 scene file"""
    bl_idname = "export_scene.zt2"
    bl_label = "Export ZT2"
    bl_options = {"PRESET"}

    filename_ext = ".zt2"
    filter_glob: bpy.props.StringProperty(default="*.zt2", options={"HIDDEN"})
    saveOptions: bpy.props.BoolProperty(
        name="Save options", default=True,
        description="Save the options into ZTExport.cfg of zt2export's folder after the export, as the options "
                    "dialog's OK does")
    preview: bpy.props.BoolProperty(
        name="Export and preview", default=False,
        description="Write the zt2view page of the exported file beside it and open it in the browser")

    def invoke(self, context, event):
        import ztexport
        try:
            _options.load_saved(self, _options.saved_options())
        except ztexport.FormatError as error:
            self.report({"WARNING"}, "%s: the saved options are not read" % error)
        _options.show_scene_values(self, context.scene)
        return ExportHelper.invoke(self, context, event)

    def execute(self, context):
        import ztexport
        options = _options.chosen_options(self, context.scene)
        # Sampling every frame is wasted when the exporter writes no animation.
        animation = options.get("exportAnimation", 1) not in (0, False, "0", "false")
        try:
            result, warnings = export_scene(context, self.filepath, options, animation=animation,
                                                  save_options=self.saveOptions)
        except (ztexport.ExportError, ValueError) as error:
            self.report({"ERROR"}, str(error))
            return {"CANCELLED"}
        for warning in warnings:
            self.report({"WARNING"}, warning)
        text = "\n".join(m.text for m in result.messages)
        if result.status != 0:
            errors = [m.text for m in result.messages if m.kind in ("error", "message_box")]
            self.report({"ERROR"}, "\n".join(errors) or text or "the export was cancelled")
            return {"CANCELLED"}
        if text:
            self.report({"INFO"}, text)
        if self.preview:
            try:
                page = write_preview(self.filepath)
            except RuntimeError as error:
                self.report({"WARNING"}, str(error))
            else:
                self.report({"INFO"}, "Preview: %s" % page)
                if not bpy.app.background:
                    webbrowser.open("file://" + os.path.abspath(page))
        return {"FINISHED"}


class ImportZT2(bpy.types.Operator, ImportHelper):
    """Import a ZT2.0 scene file"""
    bl_idname = "import_scene.zt2"
    bl_label = "Import ZT2"
    bl_options = {"UNDO"}

    filename_ext = ".zt2"
    filter_glob: bpy.props.StringProperty(default="*.zt2", options={"HIDDEN"})

    def execute(self, context):
        import ztexport
        try:
            warnings = _build.build(context, self.filepath)
        except ztexport.FormatError as error:
            # The reader's words name the file, the byte offset and the cause.
            text = str(error)
            if error.chunk and error.chunk not in text:
                text += " (in %s)" % error.chunk
            self.report({"ERROR"}, text)
            return {"CANCELLED"}
        for warning in warnings:
            self.report({"WARNING"}, warning)
        return {"FINISHED"}


def _menu(self, context):
    self.layout.operator(ExportZT2.bl_idname, text="ZT2 Scene (.zt2)")


def _import_menu(self, context):
    self.layout.operator(ImportZT2.bl_idname, text="ZT2 Scene (.zt2)")


def register():
    ExportZT2.__annotations__.update(_options.option_properties())
    bpy.utils.register_class(ExportZT2)
    bpy.utils.register_class(ImportZT2)
    bpy.types.TOPBAR_MT_file_export.append(_menu)
    bpy.types.TOPBAR_MT_file_import.append(_import_menu)


def unregister():
    bpy.types.TOPBAR_MT_file_import.remove(_import_menu)
    bpy.types.TOPBAR_MT_file_export.remove(_menu)
    bpy.utils.unregister_class(ImportZT2)
    bpy.utils.unregister_class(ExportZT2)
