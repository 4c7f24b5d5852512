#include "OutgoingMail.h"

#include <fstream>
#include <system_error>
#include <utility>
#include <vector>

#include "MailText.h"

namespace kvhost {

namespace fs = std::filesystem;

OutgoingMail::OutgoingMail(const fs::path& storeFolder, AttachmentStore& attachments)
    : m_pathFolder(storeFolder / "outgoing"), m_attachments(attachments) {
    std::error_code error;
    fs::remove_all(m_pathFolder, error);
}

void OutgoingMail::Fill(JobFile& file, const JobContent& content) {
    PreparedMail mail = PrepareMail(content.subject, content.text);
    std::vector<std::string> paths;
    if (!mail.whyAttached.empty()) {
        paths.push_back(WriteText(file, content.text).string());
    }
    for (const StoredAttachment& attachment : content.attachments) {
        paths.push_back(m_attachments.PathOf(attachment));
    }
    file.SetContent(std::move(mail.subject), std::move(mail.text), std::move(paths));
}

// A folder for each attempt: the name of the file is what the recipient sees.
fs::path OutgoingMail::WriteText(JobFile& file, const std::string& text) const {
    const fs::path folder = m_pathFolder / file.m_strMsgFileID;
    std::error_code error;
    fs::create_directories(folder, error);
    fs::permissions(m_pathFolder, fs::perms::owner_all, error);
    file.OwnFolder(folder);
    const fs::path path = folder / kAttachedTextName;
    std::ofstream stream(path, std::ios::binary);
    stream << text;
    stream.close();
    if (!stream) {
        throw AttachmentError(path.string() +
                              ": the text, which has to go as an attachment, cannot be written");
    }
    return path;
}

}  // namespace kvhost
