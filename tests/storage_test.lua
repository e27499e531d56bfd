-- USB disks and the file manager, on real folders of the simulated disks: the path
-- rule, listings, each file operation's effect on the files, copy/move with its
-- progress, formatting and labels.
local h = require "helpers"
local v = h.velconfig
local sim = h.sim

local HUB = { id = 1, class = 9, name = "Hub", mount_path = "", total_size = 0, used_size = 0, label = "" }

local function disk(id, mount, label, files)
  return { id = id, class = 8, name = "Disk " .. tostring(id), mount_path = mount, total_size = 1000,
    used_size = 400, label = label or "", files = files }
end

-- usb1 holds a few folders and files; usb10 is the disk whose mount path extends usb1's.
local function standard_disks()
  return { HUB,
    disk(2, "/mnt/usb1", "DATA", { ["docs/"] = "", ["docs/a.txt"] = "alpha", ["docs/b.txt"] = "bravo",
      ["docs/sub/"] = "", ["docs/sub/c.txt"] = "charlie", ["empty.bin"] = "",
      ["k1023.bin"] = string.rep("x", 1023), ["k1024.bin"] = string.rep("y", 1024) }),
    disk(10, "/mnt/usb10", "", { ["ten.txt"] = "10" }) }
end

local function use_disks(list, rate)
  h.edit_model(function(m)
    m.usb = list
    m.storage = { copy_rate = rate or 0, next_transfer = 1 }
  end)
  sim.clear_logs()
end

local function names(result, prefix, field)
  local out = {}
  for i = 1, 1000 do
    local row = result[prefix .. i]
    if row == nil then break end
    if field then out[i] = row[field] else out[i] = row end
  end
  return out
end

-- One field of each journal entry.
local function field_of(entries, field)
  local out = {}
  for i, e in ipairs(entries) do out[i] = e[field] end
  return out
end

local function sh(command) assert(os.execute(command) == 0, command) end

describe("storage", function()
  before_each(function()
    h.reset()
    h.fresh_root()
    use_disks(standard_disks())
  end)

  describe("disks and labels", function()
    it("numbers mass-storage disks and names unlabelled ones USB_disc1, USB_disc2", function()
      -- the record's label field holds 127 characters and its terminator
      use_disks({ HUB, disk(4, "/mnt/a", "DATA"), disk(5, "/mnt/b"), disk(6, "/mnt/c", string.rep("L", 200)),
        disk(7, "/mnt/d") })
      assert.are.same({
        storage1 = { label = "DATA", instno = "4", maxSize = 1000, usedSize = 400 },
        storage2 = { label = "USB_disc1", instno = "5", maxSize = 1000, usedSize = 400 },
        storage3 = { label = string.rep("L", 127), instno = "6", maxSize = 1000, usedSize = 400 },
        storage4 = { label = "USB_disc2", instno = "7", maxSize = 1000, usedSize = 400 },
        usbCount = 4 }, v:get("usbDevices"))
      sim.fail("ZoVel_GetUSBDeviceObjs", -1)
      assert.are.same({ usbCount = 0 }, v:get("usbDevices"))
    end)

    it("relabels the first disk whose instance number converts to the page's", function()
      use_disks({ HUB, disk("02", "/mnt/a"), disk("2", "/mnt/b"), disk("x", "/mnt/c") })
      assert.are.equal(0, v:set("usbModifyLabel", { instno = "2", newLabel = "Photos" }))
      assert.are.same({ { op = "ZoVel_USBSetLabel", id = "/com/zom/igd1/Info/USBDevice/Inst/02", label = "Photos" } },
        h.calls("ZoVel_USBSetLabel"))
      assert.are.equal(0, v:set("usbModifyLabel", { instno = "abc", newLabel = string.rep("n", 150) }))
      local r = v:get("usbDevices")
      assert.are.same({ "Photos", "USB_disc1", string.rep("n", 127) }, names(r, "storage", "label"))
      assert.are.equal(string.rep("n", 135), h.calls("ZoVel_USBSetLabel")[2].label)
      assert.are.equal("Photos", v:get("allInfo").storage1.name)
    end)

    it("answers 1 without a match and the platform's code otherwise; needs newLabel before any disk is read", function()
      assert.are.equal(1, v:set("usbModifyLabel", { instno = "9", newLabel = "x" }))
      assert.are.equal(1, v:set("usbModifyLabel", { instno = "1", newLabel = "x" })) -- the hub is no disk
      assert.matches(h.field_error("nil", "newLabel"), h.set_error("usbModifyLabel", { instno = "9" }))
      sim.fail("ZoVel_USBSetLabel", -7)
      assert.are.equal(-7, v:set("usbModifyLabel", { instno = "2", newLabel = "x" }))
      sim.fail("ZoVel_GetUSBDeviceObjs", -1)
      assert.are.equal(1, v:set("usbModifyLabel", { instno = "2", newLabel = "x" }))
      assert.are.equal(1, #h.calls("ZoVel_USBSetLabel"))
    end)
  end)

  describe("the path rule", function()
    local REFUSED = "3 destination path[%s] invalid, can't operate it."
    local CASES = {
      { "/mnt/usb1/docs", 3 },
      { "/mnt/usb1", 4 },
      { "/mnt/usb10", 1 }, -- accepted by usb1's prefix already; the platform lists usb10
      { "/mnt/usb2/x", 0, REFUSED:format("/mnt/usb2/x") },
      { "/mnt/usb1/docs/..", 0, REFUSED:format("/mnt/usb1/docs/..") },
      { "/mnt/usb1/../usb10", 0, REFUSED:format("/mnt/usb1/../usb10") },
      { "/mnt/usb1/docs/a..b", 0 }, -- a name with dots is no parent: accepted, no such folder
      { "", 0 },
    }
    for _, case in ipairs(CASES) do
      it("subFiles " .. case[1], function()
        local r = v:get("subFiles", case[1])
        assert.are.equal(case[2], r.fileNum)
        assert.are.same(case[3] and { case[3] } or {}, h.log_texts())
        local asked = #h.calls("ZoVel_NAS_GetFileNum") > 0
        assert.are.equal(case[3] == nil and case[1] ~= "", asked)
      end)
    end

    it("refuses every path when the device query fails", function()
      sim.fail("ZoVel_GetUSBDeviceObjs", -1)
      assert.are.same({ fileNum = 0 }, v:get("subFiles", "/mnt/usb1"))
      assert.are.same({ "3 ZoVel_GetUSBDeviceObjs failed." }, h.log_texts())
    end)

    it("a disk with an empty mount path (still mounting) holds no path at all", function()
      use_disks({ disk(3, ""), disk(2, "/mnt/usb1", "", { ["a.txt"] = "a" }) })
      assert.are.same({ fileNum = 0 }, v:get("subFiles", "/etc"))
      assert.are.same({ fileNum = 0 }, v:get("deleteFiles", "/etc", "config/"))
      assert.are.same({}, h.calls("ZoVel_NAS_GetFileNum"))
      assert.are.same({}, h.calls("ZoVel_NAS_Remove"))
      assert.are.equal(1, v:get("subFiles", "/mnt/usb1").fileNum)
    end)
  end)

  describe("listings", function()
    it("lists folders first, then files, with sizes in KiB rounded down plus 1 and the time text", function()
      v:get("subFiles", "/mnt/usb1")
      sh("touch -d @1700000000 '" .. h.file("/mnt/usb1/empty.bin") .. "'")
      sh("touch -d @951868799 '" .. h.file("/mnt/usb1/k1023.bin") .. "'")
      sim.clear_journal()
      local r = v:get("subFiles", "/mnt/usb1")
      assert.are.same({ "docs", "empty.bin", "k1023.bin", "k1024.bin" }, names(r, "file", "name"))
      assert.are.same({ true, false, false, false }, names(r, "file", "isFolder"))
      assert.are.same({ 1, 1, 2 }, { r.file2.size, r.file3.size, r.file4.size })
      assert.are.same({ "2023-11-14 22:13:20", "2000-02-29 23:59:59" }, { r.file2.time, r.file3.time })
      assert.are.same({ 4, "/mnt/usb1" }, { r.fileNum, r.filePath })
      assert.are.same({ { op = "ZoVel_NAS_ListFolder", folder = "/mnt/usb1", first = 1, number = 4 } },
        h.calls("ZoVel_NAS_ListFolder"))
      -- getDiagFolders: only the sub-folders, without a path
      assert.are.same({ folder1 = "sub", folderNum = 1 }, v:get("getDiagFolders", "/mnt/usb1/docs"))
    end)

    it("a failed count or listing gives no rows", function()
      sim.fail("ZoVel_NAS_GetFileNum", -1, 1)
      assert.are.same({ fileNum = 0, filePath = "/mnt/usb1/docs" }, v:get("subFiles", "/mnt/usb1/docs"))
      sim.fail("ZoVel_NAS_ListFolder", -1, 2)
      assert.are.same({ fileNum = 0, filePath = "/mnt/usb1/docs" }, v:get("subFiles", "/mnt/usb1/docs"))
      assert.are.same({ folderNum = 0 }, v:get("getDiagFolders", "/mnt/usb1/docs"))
      assert.are.same({ fileNum = 0, filePath = "/mnt/usb1/nothing" }, v:get("subFiles", "/mnt/usb1/nothing"))
    end)

    it("fileLists shows every disk and opens the first, or the last whose number matches", function()
      local r = v:get("fileLists")
      assert.are.same({ "DATA", "USB_disc1", "2", "10", 2, "DATA", "2", "/mnt/usb1", 4 },
        { r.storage1, r.storage2, r.instno1, r.instno2, r.usbCnt, r.usbLabel, r.usbLabelInst, r.filePath, r.fileNum })
      assert.are.equal("docs", r.file1.name)
      r = v:get("fileLists", "10")
      assert.are.same({ "USB_disc1", "10", "/mnt/usb10", 1, "ten.txt" },
        { r.usbLabel, r.usbLabelInst, r.filePath, r.fileNum, r.file1.name })
      assert.are.equal("/mnt/usb1", v:get("fileLists", "99").filePath)
      use_disks({ disk(2, "/mnt/usb1"), disk(0, "/mnt/z"), disk("00", "/mnt/zz") })
      assert.are.equal("/mnt/zz", v:get("fileLists").filePath)
      assert.are.equal("/mnt/zz", v:get("fileLists", "").filePath)
      sim.fail("ZoVel_GetUSBDeviceObjs", -1)
      assert.are.same({ fileNum = 0, usbCnt = 0 }, v:get("fileLists"))
    end)

    it("selectedUsb opens the first matching disk, and shows at most 63 characters of its path", function()
      local long = "/mnt/" .. string.rep("m", 70)
      use_disks({ disk(2, "/mnt/usb1", "", { ["a.txt"] = "a" }), disk(5, long, "", { ["b.txt"] = "b" }),
        disk(5, "/mnt/usb5") })
      assert.are.same({ "/mnt/usb1", 1 }, { v:get("selectedUsb", "2").filePath, v:get("selectedUsb", "2").fileNum })
      local r = v:get("selectedUsb", "5")
      assert.are.same({ long:sub(1, 63), 0 }, { r.filePath, r.fileNum })
      assert.are.same({ fileNum = 0 }, v:get("selectedUsb", "9"))
      assert.are.same({ fileNum = 0 }, v:get("selectedUsb"))
    end)
  end)

  describe("file operations", function()
    it("newFolder creates the folder and lists its parent, or only its sub-folders in folder mode", function()
      local r = v:get("newFolder", "/mnt/usb1/docs/new")
      assert.are.same({ "new", "sub", "a.txt", "b.txt" }, names(r, "file", "name"))
      assert.are.same({ 4, "/mnt/usb1/docs" }, { r.fileNum, r.filePath })
      sh("rmdir '" .. h.file("/mnt/usb1/docs/new") .. "'")
      assert.are.same({ folder1 = "new2", folder2 = "sub", folderNum = 2 }, v:get("newFolder", "/mnt/usb1/docs/new2", "1"))
      -- an existing folder is not made again: nothing listed
      assert.are.same({ fileNum = 0 }, v:get("newFolder", "/mnt/usb1/docs/sub", "0"))
      assert.are.same({ folderNum = 0 }, v:get("newFolder", "/mnt/usb2/x", "7"))
    end)

    it("deleteFiles removes names followed by '/' in order, and stops at the first failure", function()
      local r = v:get("deleteFiles", "/mnt/usb1/docs", "a.txt/b.txt")
      assert.are.same({ "sub", "b.txt" }, names(r, "file", "name"))
      v:get("deleteFiles", "/mnt/usb1/docs", "b.txt")
      assert.are.equal("bravo", h.read_file("/mnt/usb1/docs/b.txt"))
      r = v:get("deleteFiles", "/mnt/usb1", "nothing/docs/")
      assert.are.same({ 4, "docs" }, { r.fileNum, r.file1.name })
      r = v:get("deleteFiles", "/mnt/usb1", "docs/empty.bin/")
      assert.are.same({ "k1023.bin", "k1024.bin" }, names(r, "file", "name"))
      assert.is_nil(h.read_file("/mnt/usb1/docs/sub/c.txt"))
      assert.are.same({ fileNum = 0 }, v:get("deleteFiles", "/mnt/usb1", ""))
      assert.are.same({ fileNum = 0 }, v:get("deleteFiles", "/mnt/usb2", "k1023.bin/"))
      assert.are.same({ "/mnt/usb1/docs/a.txt", "/mnt/usb1/nothing", "/mnt/usb1/docs", "/mnt/usb1/empty.bin" },
        field_of(h.calls("ZoVel_NAS_Remove"), "path"))
    end)

    it("renameFile lists the old path's folder", function()
      local r = v:get("renameFile", "/mnt/usb1/docs/a.txt", "/mnt/usb1/a-renamed.txt")
      assert.are.same({ "sub", "b.txt" }, names(r, "file", "name"))
      assert.are.equal("/mnt/usb1/docs", r.filePath)
      assert.are.equal("alpha", h.read_file("/mnt/usb1/a-renamed.txt"))
      assert.are.equal(1, #h.calls("ZoVel_NAS_ReName"))
      -- an old path without any "/": no folder to list
      assert.are.same({ fileNum = 0 }, v:get("renameFile", "noslash", "/mnt/usb1/x"))
      -- one path empty, or the new one off the disks: nothing renamed, even where a
      -- disk at "" takes any path
      assert.are.same({ fileNum = 0 }, v:get("renameFile", "/mnt/usb1/docs/b.txt", ""))
      assert.are.same({ fileNum = 0 }, v:get("renameFile", "", "/mnt/usb1/docs/b.txt"))
      assert.are.equal(1, #h.calls("ZoVel_NAS_ReName"))
      use_disks(standard_disks())
      assert.are.same({ fileNum = 0 }, v:get("renameFile", "/mnt/usb1/docs/b.txt", "/elsewhere/b.txt"))
      assert.are.same({}, h.calls("ZoVel_NAS_ReName"))
    end)

    -- Each case: key, arguments, what the page gets (fields compared), and the removals
    -- made. No case renames, creates or moves anything, and every refused one
    -- removes nothing; the file tree afterwards is exactly what the removals leave.
    it("refuses paths and names that would reach beyond what the page chose", function()
      local function tree()
        local _, out = h.shell("cd " .. h.quote(h.root) .. " && find . | sort")
        return out
      end
      local DOCS = { "sub", "a.txt", "b.txt" }
      for _, c in ipairs {
        { "an empty name", "deleteFiles", { "/mnt/usb1/docs", "/" }, { fileNum = 3, names = DOCS }, {} },
        { "'.' and '..'", "deleteFiles", { "/mnt/usb1/docs", "./../" }, { fileNum = 3, names = DOCS }, {} },
        { "'.' then a file", "deleteFiles", { "/mnt/usb1/docs", "./b.txt/" }, { fileNum = 2, names = { "sub", "a.txt" } },
          { "/mnt/usb1/docs/b.txt" } },
        { "a NUL in the folder", "deleteFiles", { "/mnt/usb1/docs\0/..", "a.txt/" }, { fileNum = 0 }, {} },
        { "a NUL in the names", "deleteFiles", { "/mnt/usb1/docs", "a.txt\0/" }, { fileNum = 0 }, {} },
        { "an old path off the disks", "renameFile", { "/elsewhere/x", "/mnt/usb1/x" }, { fileNum = 0 }, {} },
        { "a NUL in the new path", "renameFile", { "/mnt/usb1/docs/a.txt", "/mnt/usb1/ren.txt\0/../../x" },
          { fileNum = 0 }, {} },
        { "a NUL in the folder to list", "subFiles", { "/mnt/usb1/docs\0/../.." }, { fileNum = 0 }, {} },
        { "a NUL in the folder to make", "newFolder", { "/mnt/usb1/new\0/../../x" }, { fileNum = 0 }, {} },
        { "a NUL in the request", "copyMove", { "move|/mnt/usb1/docs|/mnt/usb10\0x|x", "a.txt/" },
          { fileNum = 0, setRes = false }, {} },
        { "a source folder off the disks", "copyMove", { "move|/elsewhere|/mnt/usb1|x", "x/" }, { setRes = false }, {} },
        { "'', '.' and '..' to copy", "copyMove", { "copy|/mnt/usb1/docs|/mnt/usb10|x", "/./../" },
          { fileNum = 0, transId = 0, setRes = true }, {} },
        { "a disk number beyond 32 bits", "usbFormat", { "4294967298" }, { fileNum = 0 }, {} },
      } do
        h.fresh_root()
        use_disks(standard_disks())
        h.write_file("/elsewhere/x", "outside")
        v:get("subFiles", "/mnt/usb1/docs") -- the simulator lays the disks' files out on first use
        sim.clear_journal()
        local before = tree()
        local r = v:get(c[2], unpack(c[3]))
        local got = {}
        for k in pairs(c[4]) do got[k] = r[k] end
        if c[4].names then got.names = names(r, "file", "name") end
        assert.are.same(c[4], got, c[1])
        assert.are.same(c[5], field_of(h.calls("ZoVel_NAS_Remove"), "path"), c[1])
        for _, op in ipairs { "ZoVel_NAS_ReName", "ZoVel_NAS_CreateFolter", "ZoVel_NAS_Move", "ZoVel_NAS_Copy" } do
          assert.are.same({}, h.calls(op), c[1] .. " " .. op)
        end
        if #c[5] == 0 then assert.are.equal(before, tree(), c[1]) end
      end
      -- outside the file keys, a text with a NUL is an absent argument
      assert.is_nil(v:get("gwInfo", "all\0x").wanIPv6)
      assert.are.same({ ret = 0 }, v:get("getAppParas", "familycare\0x"))
    end)

    it("a move renames into the destination and lists the source folder", function()
      local slept = sim.seconds_slept()
      local r = v:get("copyMove", "move|/mnt/usb1/docs|/mnt/usb10|x", "a.txt/sub/")
      assert.are.same({ "/mnt/usb1/docs", 1, 0, 0, true, "b.txt" },
        { r.filePath, r.fileNum, r.transId, r.percent, r.setRes, r.file1.name })
      assert.are.same({ "alpha", "charlie" }, { h.read_file("/mnt/usb10/a.txt"), h.read_file("/mnt/usb10/sub/c.txt") })
      assert.are.same({}, h.calls("ZoVel_NAS_GetCopyProgress"))
      assert.are.equal(slept, sim.seconds_slept())
    end)
  end)

  describe("copy and its progress", function()
    local function big(n) return string.rep("z", n) end

    it("a copy grows with the clock at the model's speed until 100; an unknown or failed one answers 200", function()
      use_disks({ disk(2, "/mnt/usb1", "", { ["in/"] = "", ["in/film.mp4"] = big(4000), ["out/"] = "" }) }, 1000)
      local slept = sim.seconds_slept()
      local r = v:get("copyMove", "copy|/mnt/usb1/in|/mnt/usb1/out|film.mp4", "film.mp4/")
      assert.are.same({ filePath = "/mnt/usb1/in", fileNum = 0, transId = 1, percent = 25, setRes = true }, r)
      assert.are.equal(1, sim.seconds_slept() - slept)
      assert.are.same({ "5 max size file is film.mp4.", "5 max size file is film.mp4. trans id is 1.",
        "5 Copy tranID is 1, percent is 25." }, h.log_texts())
      local seen = {}
      for i = 1, 4 do
        seen[i] = v:get("copyProgress", "1").percent
        sim.advance_clock(1)
      end
      assert.are.same({ 25, 50, 75, 100 }, seen)
      assert.are.equal(big(4000), h.read_file("/mnt/usb1/out/film.mp4"))
      assert.are.equal("5 Get copy progress with tranID is 1, percent is 100.", h.log_texts()[#h.log_texts()])
      assert.are.same({ percent = 200 }, v:get("copyProgress", "99"))
      assert.are.equal("5 Get copy progress with tranID is 99, percent is 0.", h.log_texts()[#h.log_texts()])
      sim.fail("ZoVel_NAS_GetCopyProgress", -1)
      assert.are.same({ percent = 200 }, v:get("copyProgress", "1"))
    end)

    it("reports the least advanced of several copies, starting from the largest file's", function()
      use_disks({ disk(2, "/mnt/usb1", "", { ["a/"] = "", ["a/x"] = big(1000), ["a/big.iso"] = big(8000),
        ["a/y"] = big(2000), ["b/"] = "" }) }, 1000)
      local r = v:get("copyMove", "copy|/mnt/usb1/a|/mnt/usb1/b|big.iso", "x/big.iso/y/")
      assert.are.same({ 2, 12 }, { r.transId, r.percent })
      assert.are.equal(3, #h.calls("ZoVel_NAS_Copy"))
      assert.are.same({ 2, 1, 3 }, field_of(h.calls("ZoVel_NAS_GetCopyProgress"), "transfer"))
      use_disks({ disk(2, "/mnt/usb3", "", { ["a/"] = "", ["a/x"] = big(1000), ["a/big.iso"] = big(8000),
        ["a/y"] = big(20000), ["b/"] = "" }) }, 1000)
      r = v:get("copyMove", "copy|/mnt/usb3/a|/mnt/usb3/b|big.iso", "x/big.iso/y/")
      assert.are.same({ 3, 5 }, { r.transId, r.percent })
      -- without the largest file among the names the last copy is the starting candidate
      r = v:get("copyMove", "copy|/mnt/usb3/a|/mnt/usb3/b|none", "x/")
      assert.are.same({ 4, 100 }, { r.transId, r.percent })
      -- copies that are all done: none takes the largest file's place
      use_disks({ disk(2, "/mnt/usb1", "", { ["a/"] = "", ["a/x"] = big(10), ["a/big.iso"] = big(10), ["b/"] = "" }) })
      r = v:get("copyMove", "copy|/mnt/usb1/a|/mnt/usb1/b|big.iso", "x/big.iso/")
      assert.are.same({ 2, 100 }, { r.transId, r.percent })
    end)

    it("stops at the first name that fails, whose empty slot is then reported, and copies whole folders", function()
      use_disks({ disk(2, "/mnt/usb1", "", { ["a/"] = "", ["a/f/"] = "", ["a/f/g.txt"] = "g", ["a/h"] = "h",
        ["b/"] = "" }) })
      local r = v:get("copyMove", "copy|/mnt/usb1/a|/mnt/usb1/b|f", "f/missing/h/")
      -- the failed copy kept identifier 0, which no query answers: 0 stays below 100
      assert.are.same({ 0, 0 }, { r.transId, r.percent })
      assert.are.same({ 1, 0 }, field_of(h.calls("ZoVel_NAS_GetCopyProgress"), "transfer"))
      assert.are.equal(100, v:get("copyProgress", "1").percent)
      assert.are.equal("g", h.read_file("/mnt/usb1/b/f/g.txt"))
      assert.is_nil(h.read_file("/mnt/usb1/b/h"))
      assert.are.equal(2, #h.calls("ZoVel_NAS_Copy"))
    end)

    -- The identifier table holds 1023 copies: the 1024th starts but is not followed,
    -- so without the largest file among them the 1023rd is the first one asked about.
    it("a copy of 1024 files follows the first 1023", function()
      local files, list = { ["a/"] = "", ["b/"] = "" }, {}
      for i = 1, 1024 do
        files["a/f" .. i] = "z"
        list[i] = "f" .. i
      end
      use_disks({ disk(2, "/mnt/usb1", "", files) })
      assert.is_true(v:get("copyMove", "copy|/mnt/usb1/a|/mnt/usb1/b|none", table.concat(list, "/") .. "/").setRes)
      assert.are.equal(1024, #h.calls("ZoVel_NAS_Copy"))
      local asked = field_of(h.calls("ZoVel_NAS_GetCopyProgress"), "transfer")
      assert.are.same({ 1023, 1023 }, { asked[1], #asked })
      for _, t in ipairs(asked) do assert.is_true(t < 1024) end
    end)

    it("missing arguments, a refused destination and odd requests", function()
      local none = { fileNum = 0, transId = 0, percent = 0, setRes = false }
      assert.are.same(none, v:get("copyMove", "copy|/mnt/usb1|/mnt/usb10|a"))
      assert.are.same(none, v:get("copyMove", "", "a/"))
      assert.are.same({ setRes = false }, v:get("copyMove", "copy|/mnt/usb1/docs|/tmp|a.txt", "a.txt/"))
      assert.are.same({}, h.calls("ZoVel_NAS_Copy"))
      -- an operation over 15 characters ends the split: no destination, even where the
      -- rest of its field reads as a path; 15 are a move
      assert.are.same({ setRes = false }, v:get("copyMove", "copycopycopycopy|/mnt/usb1|/mnt/usb10|x", "x/"))
      assert.are.same({ setRes = false },
        v:get("copyMove", "movemovemovemov/mnt/usb1/docs|/mnt/usb10|x|y", "b.txt/"))
      -- nor does an empty operation, which would otherwise read as a move
      assert.are.same({ setRes = false }, v:get("copyMove", "|/mnt/usb1/docs|/mnt/usb10|x", "b.txt/"))
      assert.are.same({}, h.calls("ZoVel_NAS_Move"))
      assert.is_true(v:get("copyMove", "copycopycopycop|/mnt/usb1/docs|/mnt/usb10|x", "b.txt/").setRes)
      assert.are.equal(1, #h.calls("ZoVel_NAS_Move"))
      sim.clear_logs()
      local long = string.rep("n", 300)
      v:get("copyMove", "copy|/mnt/usb1/docs|/mnt/usb10|" .. long, "a.txt/")
      assert.are.equal("5 max size file is " .. string.rep("n", 255) .. ".", h.log_texts()[1])
      assert.are.equal("alpha", h.read_file("/mnt/usb10/a.txt"))
    end)
  end)

  describe("format", function()
    it("empties the disk and answers without a listing; a failed one lists what is still there", function()
      sim.fail("ZoVel_USBFormat", -1, 1)
      local r = v:get("usbFormat", "2")
      assert.are.same({ 4, "/mnt/usb1", "docs" }, { r.fileNum, r.filePath, r.file1.name })
      assert.are.same({ fileNum = 0, filePath = "/mnt/usb1" }, v:get("usbFormat", "2"))
      assert.are.same({ fileNum = 0, filePath = "/mnt/usb1" }, v:get("subFiles", "/mnt/usb1"))
      assert.are.equal(0, v:get("usbDevices").storage1.usedSize)
      assert.are.equal(1, v:get("subFiles", "/mnt/usb10").fileNum)
      -- no matching disk, or no disks at all: nothing formatted, nothing listed
      assert.are.same({ fileNum = 0 }, v:get("usbFormat", "1"))
      assert.are.same({ fileNum = 0 }, v:get("usbFormat"))
      sim.fail("ZoVel_GetUSBDeviceObjs", -1)
      assert.are.same({ fileNum = 0 }, v:get("usbFormat", "2"))
      assert.are.same({ "/com/zom/igd1/Info/USBDevice/Inst/2", "/com/zom/igd1/Info/USBDevice/Inst/2" },
        field_of(h.calls("ZoVel_USBFormat"), "id"))
    end)
  end)
end)
