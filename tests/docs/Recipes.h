// The recipes of docs/guide.md: each is a function that prints what the guide says it prints.
#ifndef KPL_TESTS_DOCS_RECIPES_H_
#define KPL_TESTS_DOCS_RECIPES_H_

void Serve();
void CallFunctions();
void CallBack();
void TimeOut();
void Stop();
void SurviveACrash();
void ReadLines();
void ReadAndWriteJson();
void LogToFiles();
void TakeTheLog();
void UseATimer();
void UseAQueue();
void FindWhatHangs();

#endif  // KPL_TESTS_DOCS_RECIPES_H_
