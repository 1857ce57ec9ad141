#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Update/UpdateCheck.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "TestSupport/DebugLogCapture.h"
#include "TestSupport/LocalHttpServer.h"

#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTest>

namespace {

UpdateManifest manifest(std::optional<QString> version,
                        std::optional<QString> url = u"https://dl.example/N.zip"_qs,
                        std::optional<QString> sha = QString(64, u'a'),
                        std::optional<QString> notes = std::nullopt) {
    return {true,           std::move(version), std::move(notes),  std::move(url),
            std::move(sha), u"c2lnbmVk"_qs,     u"dmVyc2lvbg=="_qs};
}

} // namespace

class UpdateCheckTest : public QObject {
    Q_OBJECT
private slots:
    void cleanup() { L10n::setOverride(std::nullopt); }

    void aFailedFetchIsTheUnreachableMessage() {
        L10n::setOverride(u"zh"_qs);
        QCOMPARE(UpdateCheck::evaluate(std::nullopt, u"1.0.0"_qs),
                 CheckResult::failed(u"无法连接更新服务。"_qs));
    }

    void nothingNewerIsUpToDate() {
        UpdateManifest unavailable = manifest(u"9.0"_qs);
        unavailable.available = false;
        QCOMPARE(UpdateCheck::evaluate(unavailable, u"1.0.0"_qs).kind, CheckResult::Kind::upToDate);
        QCOMPARE(UpdateCheck::evaluate(manifest(std::nullopt), u"1.0.0"_qs).kind,
                 CheckResult::Kind::upToDate);
        QCOMPARE(UpdateCheck::evaluate(manifest(u"v1.2"_qs), u"1.2.0"_qs).kind, CheckResult::Kind::upToDate);
        QCOMPARE(UpdateCheck::evaluate(manifest(u"1.1.9"_qs), u"1.2.0"_qs).kind, CheckResult::Kind::upToDate);
        // Up to date wins over a broken asset: nothing would be installed anyway.
        QCOMPARE(UpdateCheck::evaluate(manifest(u"1.0"_qs, std::nullopt, std::nullopt), u"1.0"_qs).kind,
                 CheckResult::Kind::upToDate);
    }

    void aNewerReleaseNeedsAnAssetAndAChecksum() {
        L10n::setOverride(u"en"_qs);
        QCOMPARE(UpdateCheck::evaluate(manifest(u"1.3"_qs, std::nullopt), u"1.2"_qs),
                 CheckResult::failed(u"Release has no downloadable asset."_qs));
        QCOMPARE(UpdateCheck::evaluate(manifest(u"1.3"_qs, u"not a url"_qs), u"1.2"_qs),
                 CheckResult::failed(u"Release has no downloadable asset."_qs));
        QCOMPARE(
            UpdateCheck::evaluate(manifest(u"1.3"_qs, u"https://dl.example/a.zip"_qs, QString()), u"1.2"_qs),
            CheckResult::failed(u"Release manifest is missing its checksum."_qs));
        QCOMPARE(UpdateCheck::evaluate(manifest(u"1.3"_qs, u"https://dl.example/a.zip"_qs, std::nullopt),
                                       u"1.2"_qs)
                     .kind,
                 CheckResult::Kind::failed);
    }

    void anInstallableReleaseCarriesLocalizedNotes() {
        L10n::setOverride(u"zh"_qs);
        const QString sha = u"ABCDEF"_qs + QString(58, u'0');
        const CheckResult result =
            UpdateCheck::evaluate(manifest(u"v2.0.1"_qs, u"https://dl.example/Nubra.zip"_qs, sha,
                                           u"{\"zh\":\"修复\",\"en\":\"Fixes\"}"_qs),
                                  u"2.0.0"_qs);
        QCOMPARE(result,
                 CheckResult::available({u"v2.0.1"_qs, u"修复"_qs, QUrl(u"https://dl.example/Nubra.zip"_qs),
                                         sha, u"c2lnbmVk"_qs, u"dmVyc2lvbg=="_qs}));
        QCOMPARE(result.description(), u"available(v2.0.1)"_qs);
        QCOMPARE(UpdateCheck::evaluate(manifest(u"3"_qs), u"2"_qs).info.notes, QString());
    }

    // The manifest is fetched without a credential; only a failure is logged.
    void checkAsksTheServiceForItsManifest() {
        L10n::setOverride(u"en"_qs);
        const QString sha = QString(64, u'c');
        LocalHttpServer::Response answer = LocalHttpServer::Response::whole(
            200, "{\"ok\":true,\"data\":{\"available\":true,\"version\":\"1.4.0\",\"notes\":\"Faster\","
                 "\"url\":\"https://dl.example/N.zip\",\"sha256\":\"" +
                     sha.toLatin1() + "\"}}");
        LocalHttpServer server;
        server.route("GET", "/v1/updates/latest",
                     [&answer](const LocalHttpServer::Request&) { return answer; });
        QVERIFY(server.start());
        QNetworkAccessManager session;
        DebugLogCapture log;
        const auto check = [&] {
            std::optional<CheckResult> outcome;
            QObject context;
            UpdateCheck::check(GlossAPI(server.url(), &session), u"1.3.9"_qs, &context,
                               [&](const CheckResult& result) { outcome = result; });
            [&] { QTRY_VERIFY(outcome.has_value()); }();
            return outcome.value_or(CheckResult::upToDate());
        };

        QCOMPARE(check(),
                 CheckResult::available(
                     {u"1.4.0"_qs, u"Faster"_qs, QUrl(u"https://dl.example/N.zip"_qs), sha, {}, {}}));
        QVERIFY(!server.requests().front().hasHeader("authorization"));
        QCOMPARE(log.messages(), QStringList());

        answer = LocalHttpServer::Response::whole(500, "{}");
        QCOMPARE(check(), CheckResult::failed(u"Could not reach the update service."_qs));
        QCOMPARE(log.messages().size(), 1);
        QVERIFY(log.messages().front().startsWith(u"updater: manifest fetch failed: "_qs));
    }

    void messagesForTheUser() {
        L10n::setOverride(u"zh"_qs);
        QCOMPARE(UpdateCheck::upToDateMessage(u"0.1.0"_qs), u"已是最新版本！Nubra 0.1.0 即最新。"_qs);
    }
};

QTEST_GUILESS_MAIN(UpdateCheckTest)
#include "tst_updatecheck.moc"
