; The installer of the library and the client for 64-bit Windows, per machine.
; scripts/package_windows.sh defines VERSION, STAGE (the tree to install), LISTS (the files of it) and
; OUTPUT. Exit codes; the uninstaller's reach a caller only with "_?=FOLDER", since it goes on in a copy of
; itself, and are then 0, 1, 5 and 6:
;   0 done
;   1 ended by the user
;   2 ended because a file could not be written
;   3 not a 64-bit Windows 10 or later
;   4 not an administrator
;   5 the library or dpdu.exe is in use; nothing was changed
;   6 installed or removed, but the root file was not changed; the text says why
;   7 the folder has files of others; nothing was changed
;   8 installed in another folder already; nothing was changed

Unicode true
Target amd64-unicode
ManifestSupportedOS all
ManifestDPIAware true
RequestExecutionLevel admin
SetCompressor /SOLID lzma
SetDateSave off
CRCCheck force
ShowInstDetails show
ShowUninstDetails show

!include FileFunc.nsh
!include LogicLib.nsh
!include WinVer.nsh
!include x64.nsh

!define PRODUCT "Tarvik D-PDU"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\TarvikDPDU"
; Names the folder as long as it exists, also when only a changed configuration is left in it.
!define FOLDER_KEY "Software\Tarvik\D-PDU"
; config.json as it was installed, which shows whether somebody has changed the one beside the library.
!define ORIGINAL_FOLDER "share\tarvik-dpdu"
!define ALLOWED_FOR_ADMINISTRATORS "O:BAD:PAI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;BU)"

Name "${PRODUCT} ${VERSION}"
OutFile "${OUTPUT}"
BrandingText "${PRODUCT} ${VERSION}"
VIProductVersion "${VERSION}.0"
VIAddVersionKey ProductName "${PRODUCT}"
VIAddVersionKey ProductVersion "${VERSION}"
VIAddVersionKey FileVersion "${VERSION}"
VIAddVersionKey FileDescription "${PRODUCT} setup"
VIAddVersionKey CompanyName "Tarvik"
VIAddVersionKey LegalCopyright "2026 Tarvik"

Page components
Page directory SkipForUpgrade
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

Var root_failed

; Ends with a text, which a silent run leaves out, and an exit code.
!macro EndWith code text
    MessageBox MB_ICONSTOP|MB_OK "${text}" /SD IDOK
    SetErrorLevel ${code}
    Quit
!macroend

; ---- folders --------------------------------------------------------------------------------------

; Makes the folder $0 with rights for administrators alone, or gives these to one that exists, so that no
; user can put a file beside the library. A new folder has them from its first moment.
Function ProtectFolder
    System::Call 'advapi32::ConvertStringSecurityDescriptorToSecurityDescriptorW(w "${ALLOWED_FOR_ADMINISTRATORS}", i 1, *p .r1, p 0) i .r2'
    ${If} $2 = 0
        Abort "Windows does not know the rights of the folder."
    ${EndIf}
    System::Call '*(i 24, i 0, p r1, p 0) p .r3'
    System::Call 'kernel32::CreateDirectoryW(w r0, p r3) i .r2'
    System::Free $3
    ; 5: owner and list of rights. For one that was there.
    System::Call 'advapi32::SetFileSecurityW(w r0, i 5, p r1) i .r2'
    System::Call 'kernel32::LocalFree(p r1)'
    ${If} $2 = 0
        Abort "The rights of $0 cannot be set."
    ${EndIf}
FunctionEnd

; $INSTDIR, and of the default folder also C:\Tarvik, which the installer makes. The one around another
; folder is the user's choice: whoever may rename it can put another in its place.
Function ProtectDefaultFolders
    ${GetParent} "$INSTDIR" $4
    ${If} "$INSTDIR" == "$5"
        StrCpy $0 $4
        Call ProtectFolder
    ${Else}
        CreateDirectory $4
    ${EndIf}
    StrCpy $0 $INSTDIR
    Call ProtectFolder
FunctionEnd

; $5: C:\Tarvik\Brennix. A path without blanks, as some applications do not accept any in an address.
Function DefaultFolder
    StrCpy $5 $WINDIR 2
    StrCpy $5 "$5\Tarvik\Brennix"
FunctionEnd

; $0: the folder of the installed library, or empty. Where only a changed configuration is left, nothing
; is installed.
!macro InstalledFolder prefix
Function ${prefix}InstalledFolder
    ReadRegStr $0 HKLM "${FOLDER_KEY}" Folder
    ${IfNot} ${FileExists} "$0\bin\tarvik_dpdu_x64.dll"
    ${AndIfNot} ${FileExists} "$0\bin\dpdu.exe"
        StrCpy $0 ""
    ${EndIf}
FunctionEnd
!macroend
!insertmacro InstalledFolder ""
!insertmacro InstalledFolder "un."

Function SkipForUpgrade
    Call InstalledFolder
    ${If} $0 != ""
        Abort
    ${EndIf}
FunctionEnd

; The machine has one entry for us in the root file and one among its programs. A second folder would take
; both over, and nothing would remove the files of the first.
Function RequireNoOtherFolder
    Call InstalledFolder
    ${If} $0 != ""
    ${AndIf} $0 != $INSTDIR
        !insertmacro EndWith 8 "${PRODUCT} is installed in $0 already. Remove it there first, or leave out /D. Nothing was changed."
    ${EndIf}
FunctionEnd

; Refuses a folder with files that this installer has not made. Programs load what lies
; beside them, so a folder that anybody could have filled is not taken over.
Function RequireOwnFolder
    ReadRegStr $0 HKLM "${FOLDER_KEY}" Folder
    ${If} $0 == $INSTDIR
        Return
    ${EndIf}
    ${DirState} "$INSTDIR" $0
    ${If} $0 = 1
        !insertmacro EndWith 7 "$INSTDIR has files already. Choose an empty or a new folder."
    ${EndIf}
FunctionEnd

; A file that a program has loaded cannot be opened for writing.
!macro RequireUnused prefix
Function ${prefix}RequireUnused
    StrCpy $1 ""
    ${If} ${FileExists} "$INSTDIR\bin\tarvik_dpdu_x64.dll"
        ClearErrors
        FileOpen $0 "$INSTDIR\bin\tarvik_dpdu_x64.dll" a
        ${If} ${Errors}
            StrCpy $1 "The library"
        ${Else}
            FileClose $0
        ${EndIf}
    ${EndIf}
    ${If} ${FileExists} "$INSTDIR\bin\dpdu.exe"
        ClearErrors
        FileOpen $0 "$INSTDIR\bin\dpdu.exe" a
        ${If} ${Errors}
            StrCpy $1 "dpdu.exe"
        ${Else}
            FileClose $0
        ${EndIf}
    ${EndIf}
    ${If} $1 != ""
        !insertmacro EndWith 5 "$1 is in use. Close the programs that use it, then start this again. Nothing was changed."
    ${EndIf}
FunctionEnd
!macroend
!insertmacro RequireUnused ""
!insertmacro RequireUnused "un."

; ---- the root file --------------------------------------------------------------------------------

; Runs "dpdu root $0".
!macro ChangeRootFile prefix
Function ${prefix}ChangeRootFile
    nsExec::ExecToStack '"$INSTDIR\bin\dpdu.exe" root $0'
    Pop $1
    Pop $2
    ${If} $1 != 0
        StrCpy $root_failed yes
        DetailPrint "dpdu root $0: $2"
        MessageBox MB_ICONEXCLAMATION|MB_OK "Applications look for D-PDU libraries in the machine's root file. It was not changed:$\r$\n$2$\r$\nWhen the reason is gone, run as administrator: dpdu root $0" /SD IDOK
    ${EndIf}
FunctionEnd
!macroend
!insertmacro ChangeRootFile ""
!insertmacro ChangeRootFile "un."

; Of a root file that went with its only entry, the copy goes too.
Function un.RemoveCopyOfRootFile
    ReadRegStr $0 HKLM "SOFTWARE\D-PDU API" "Root File"
    ${If} $0 == ""
    ${AndIfNot} ${FileExists} "$PROGRAMFILES64\D-PDU API\pdu_api_root_x64.xml"
        Delete "$PROGRAMFILES64\D-PDU API\pdu_api_root_x64.xml.bak"
        RMDir "$PROGRAMFILES64\D-PDU API"
    ${EndIf}
FunctionEnd

; ---- the configuration beside the library ---------------------------------------------------------

; $0: "same" if it is as it was installed. One that cannot be compared counts as changed.
!macro CompareConfig prefix
Function ${prefix}CompareConfig
    StrCpy $0 changed
    ClearErrors
    FileOpen $1 "$INSTDIR\${ORIGINAL_FOLDER}\config.json" r
    ${If} ${Errors}
        Return
    ${EndIf}
    FileOpen $2 "$INSTDIR\bin\config.json" r
    ${If} ${Errors}
        FileClose $1
        Return
    ${EndIf}
    StrCpy $0 same
    ${Do}
        ClearErrors
        FileReadByte $1 $3
        ${If} ${Errors}
            StrCpy $3 end
        ${EndIf}
        ClearErrors
        FileReadByte $2 $4
        ${If} ${Errors}
            StrCpy $4 end
        ${EndIf}
        ${If} $3 != $4
            StrCpy $0 changed
            StrCpy $3 end
        ${EndIf}
    ${LoopUntil} $3 == end
    FileClose $1
    FileClose $2
    ClearErrors
FunctionEnd
!macroend
!insertmacro CompareConfig ""
!insertmacro CompareConfig "un."

; ---- installing -----------------------------------------------------------------------------------

Function .onInit
    ${IfNot} ${RunningX64}
    ${OrIfNot} ${AtLeastWin10}
        !insertmacro EndWith 3 "${PRODUCT} needs a 64-bit Windows 10 or later."
    ${EndIf}
    UserInfo::GetAccountType
    Pop $0
    ${If} $0 != Admin
        !insertmacro EndWith 4 "Run this as administrator."
    ${EndIf}
    SetRegView 64
    SetShellVarContext all
    ${If} $INSTDIR == ""
        ReadRegStr $INSTDIR HKLM "${FOLDER_KEY}" Folder
    ${EndIf}
    ${If} $INSTDIR == ""
        Call DefaultFolder
        StrCpy $INSTDIR $5
    ${EndIf}
    Call RequireNoOtherFolder
FunctionEnd

Section "Library and client"
    SectionIn RO
    Call RequireNoOtherFolder ; the pages may have been open for long
    Call RequireOwnFolder
    Call RequireUnused
    Call DefaultFolder
    Call ProtectDefaultFolders
    Call RequireOwnFolder ; what was put there before nobody else could
    WriteRegStr HKLM "${FOLDER_KEY}" Folder "$INSTDIR"
    ; The entry's name carries the version, so that of an older one goes.
    ${If} ${FileExists} "$INSTDIR\bin\dpdu.exe"
        StrCpy $0 remove
        Call ChangeRootFile
    ${EndIf}
    Call CompareConfig
    ${If} $0 == same
        Delete "$INSTDIR\bin\config.json"
    ${EndIf}
    SetOverwrite on
    !include "${LISTS}\install_product.nsh"
    SetOutPath "$INSTDIR\${ORIGINAL_FOLDER}"
    File "${STAGE}\bin\config.json"
    SetOverwrite off
    SetOutPath "$INSTDIR\bin"
    File "${STAGE}\bin\config.json"
    SetOverwrite on
    WriteUninstaller "$INSTDIR\uninstall.exe"

    StrCpy $0 add
    Call ChangeRootFile

    WriteRegStr HKLM "${UNINSTALL_KEY}" DisplayName "${PRODUCT}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" DisplayVersion "${VERSION}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" Publisher "Tarvik"
    WriteRegStr HKLM "${UNINSTALL_KEY}" InstallLocation "$INSTDIR"
    WriteRegStr HKLM "${UNINSTALL_KEY}" DisplayIcon "$INSTDIR\uninstall.exe"
    WriteRegStr HKLM "${UNINSTALL_KEY}" UninstallString '"$INSTDIR\uninstall.exe"'
    WriteRegStr HKLM "${UNINSTALL_KEY}" QuietUninstallString '"$INSTDIR\uninstall.exe" /S'
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" NoModify 1
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" NoRepair 1
SectionEnd

Section "Files for building programs"
    !include "${LISTS}\install_development.nsh"
SectionEnd

Section "-Size"
    ${GetSize} "$INSTDIR" "/S=0K" $0 $1 $2
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" EstimatedSize $0
    ${If} $root_failed == yes
        SetErrorLevel 6
    ${EndIf}
SectionEnd

; ---- uninstalling ---------------------------------------------------------------------------------

Function un.onInit
    SetRegView 64
    SetShellVarContext all
FunctionEnd

Section Uninstall
    Call un.RequireUnused
    ; Without both, this was left by a removal that did not remove itself.
    ReadRegStr $0 HKLM "${UNINSTALL_KEY}" InstallLocation
    ${If} $0 == $INSTDIR
    ${OrIf} ${FileExists} "$INSTDIR\bin\dpdu.exe"
        StrCpy $0 remove
        Call un.ChangeRootFile
        Call un.RemoveCopyOfRootFile
    ${EndIf}
    Call un.CompareConfig
    ${If} $0 == same
        Delete "$INSTDIR\bin\config.json"
    ${ElseIf} ${FileExists} "$INSTDIR\bin\config.json"
        DetailPrint "$INSTDIR\bin\config.json was changed and stays."
    ${EndIf}
    Delete "$INSTDIR\${ORIGINAL_FOLDER}\config.json"
    RMDir "$INSTDIR\${ORIGINAL_FOLDER}"
    !include "${LISTS}\uninstall.nsh"
    Delete "$INSTDIR\uninstall.exe"
    RMDir "$INSTDIR"
    ; Only if it is empty, and named as the installer names it.
    ${GetParent} "$INSTDIR" $0
    ${GetFileName} "$0" $1
    ${If} $1 == Tarvik
        RMDir "$0"
    ${EndIf}
    Call un.InstalledFolder
    ${If} $0 == ""
    ${OrIf} $0 == $INSTDIR ; else the keys are of an installation in another folder
        DeleteRegKey HKLM "${UNINSTALL_KEY}"
    ${EndIf}
    ReadRegStr $0 HKLM "${FOLDER_KEY}" Folder
    ${IfNot} ${FileExists} "$0\*.*"
        DeleteRegKey HKLM "${FOLDER_KEY}"
        DeleteRegKey /ifempty HKLM "Software\Tarvik"
    ${EndIf}
    ${If} $root_failed == yes
        SetErrorLevel 6
    ${EndIf}
SectionEnd
